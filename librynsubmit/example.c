/*
 * Raises a warning of an external component: rynd passes it on to the management agent.
 *
 *   cc example.c $(pkg-config --cflags --libs rynsubmit) -o example && ./example
 */
#include <rynsubmit.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  rynsubmit *connection;
  int error = rynsubmit_connect(5000, &connection);
  if (error != 0) {
    fprintf(stderr, "cannot reach rynd: %s\n", strerror(error));
    return 1;
  }
  const rynsubmit_argument arguments[] = {
      rynsubmit_string("acme-raid"),                     /* the component */
      rynsubmit_string("https://kb.example/1234"),       /* what to read about it */
      rynsubmit_string("the cache battery wears out"),   /* what it reports */
  };
  error = rynsubmit_submit(connection, "ryn.user.external.warning", "battery", arguments, 3);
  if (error != 0) fprintf(stderr, "cannot submit: %s\n", strerror(error));
  rynsubmit_close(connection);
  return error != 0;
}
