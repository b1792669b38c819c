/* A whole management agent: serves the event socket, decodes each record of rynd(8) and prints it as one line,
   "MICROSECONDS SEQUENCE HOST NAME ARGUMENT...", texts in double quotes. Ends by SIGTERM or SIGINT.
   Build: cc -o event-agent event-agent.c        Use: event-agent [SOCKET] */
#include <errno.h>
#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

enum { HEADER = 68, DESCRIPTOR = 16, TRAILER = 4, LONGEST = 65536, BACKLOG = 4096 };

/* Integers are little-endian, wherever this runs, and nothing is aligned. */
static uint64_t load(const unsigned char *at, int width) {
  uint64_t value = 0;
  for (int i = width; i-- > 0;) value = value << 8 | at[i];
  return value;
}

static void print_text(const char *text) {
  putchar('"');
  for (; *text != '\0'; ++text) {
    const unsigned char c = (unsigned char)*text;
    if (c == '"' || c == '\\') printf("\\%c", c);
    else if (c < 0x20 || c == 0x7f) printf("\\x%02x", c);
    else putchar(c);
  }
  putchar('"');
}

/* What is wrong with the record, or NULL once it is printed. Every length is checked before it is used: whoever may
   connect may send anything. */
static const char *print_event(const unsigned char *record, size_t size) {
  if (size < HEADER) return "shorter than its header";
  const size_t total = load(record + 56, 4), count = load(record + 60, 4), name = load(record + 64, 4);
  if (total > size) return "cut short"; /* fewer bytes than that; more, all zero, are no error */
  if (name == 0 || name > 129 || total < HEADER + name + TRAILER) return "the name does not fit";
  if (record[HEADER + name - 1] != '\0' || record[53] != '\0') return "a text does not end";
  const unsigned char *area = record + HEADER + name;
  const size_t room = total - HEADER - name - TRAILER;
  if (count > room / DESCRIPTOR) return "the arguments do not fit";
  for (size_t i = 0; i < count; ++i) {
    const unsigned char *descriptor = area + i * DESCRIPTOR;
    const uint64_t kind = load(descriptor, 4), length = load(descriptor + 4, 4), offset = load(descriptor + 8, 8);
    if (kind < 1 || kind > 4) return "an argument of an unknown kind";
    if (kind == 3 && (length == 0 || offset > room || length > room - offset || area[offset + length - 1] != '\0'))
      return "a text argument does not fit";
  }
  printf("%" PRIu64 " %" PRIu64 " %s %s", load(record, 8), load(record + 8, 8), (const char *)record + 16,
         (const char *)record + HEADER);
  for (size_t i = 0; i < count; ++i) {
    const unsigned char *descriptor = area + i * DESCRIPTOR;
    const uint64_t value = load(descriptor + 8, 8);
    putchar(' ');
    switch (load(descriptor, 4)) {
      case 1: printf("%" PRId64, (int64_t)value); break;
      case 2: printf("%" PRIu64, value); break;
      case 3: print_text((const char *)area + value); break;
      default: printf("(null)");
    }
  }
  putchar('\n');
  fflush(stdout);
  return NULL;
}

static volatile sig_atomic_t stopped = 0;
static void stop(int number) {
  (void)number;
  stopped = 1;
}

static int fail(const char *what) {
  fprintf(stderr, "event-agent: %s: %s\n", what, strerror(errno));
  return 1;
}

int main(int argc, char **argv) {
  const char *path = argc > 1 ? argv[1] : "/var/run/corvane/mgmtd-kprob.sock";
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  if (strlen(path) >= sizeof address.sun_path) return errno = ENAMETOOLONG, fail(path);
  strcpy(address.sun_path, path);
  struct sigaction action = {.sa_handler = stop}; /* without SA_RESTART: accept ends */
  sigaction(SIGTERM, &action, NULL);
  sigaction(SIGINT, &action, NULL);
  const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
  unlink(path);
  /* rynd is in the group of the folder, which is set-group-id: the socket gets that group. */
  umask(0117);
  if (bind(listening, (struct sockaddr *)&address, sizeof address) != 0 || listen(listening, BACKLOG) != 0)
    return fail(path);
  static unsigned char record[LONGEST];
  while (!stopped) {
    const int connection = accept(listening, NULL, NULL);
    if (connection < 0) continue;
    const struct timeval second = {1, 0}; /* somebody who connects and sends nothing must not hold up the next */
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    size_t size = 0;
    ssize_t got;
    while (size < sizeof record && (got = read(connection, record + size, sizeof record - size)) > 0) size += (size_t)got;
    close(connection);
    const char *wrong = print_event(record, size);
    if (wrong != NULL) fprintf(stderr, "event-agent: a record of %zu bytes is damaged: %s\n", size, wrong);
  }
  unlink(path); /* before it is no longer served: events then wait in the daemon */
  return 0;
}
