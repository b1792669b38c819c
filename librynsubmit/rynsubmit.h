/*
 * librynsubmit: programs of the host submit observations to rynd through its user context.
 *
 * For C and C++; depends on nothing but the C library. Every function that returns int returns 0 or a positive errno
 * value. A connection may be used by any number of threads at once, one of which is served at a time, but closed by one
 * when no other uses it any more.
 */
#ifndef RYNSUBMIT_H
#define RYNSUBMIT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RYNSUBMIT_API __attribute__((visibility("default")))

/* The longest record that the daemon takes, in bytes: 32, the id and the message with their NULs, and the arguments:
 * 8 bytes each, and an integer's width or a string's bytes with its NUL. */
#define RYNSUBMIT_MAX_RECORD 131071

/* A connection to the daemon. */
typedef struct rynsubmit rynsubmit;

enum rynsubmit_kind { RYNSUBMIT_SIGNED = 1, RYNSUBMIT_UNSIGNED = 2, RYNSUBMIT_STRING = 3, RYNSUBMIT_NULL_STRING = 4 };

/* One typed argument. An integer that its width does not hold, or a width that is none of 1, 2, 4 and 8 bytes, is
 * refused; strings have width 0. A string is borrowed for the call. */
typedef struct rynsubmit_argument {
  enum rynsubmit_kind kind;
  unsigned width;
  union {
    int64_t i;     /* RYNSUBMIT_SIGNED */
    uint64_t u;    /* RYNSUBMIT_UNSIGNED */
    const char *s; /* RYNSUBMIT_STRING */
  } value;
} rynsubmit_argument;

/* An integer of 1, 2, 4 or 8 bytes. */
static inline rynsubmit_argument rynsubmit_signed(unsigned width, int64_t value) {
  rynsubmit_argument argument;
  argument.kind = RYNSUBMIT_SIGNED;
  argument.width = width;
  argument.value.i = value;
  return argument;
}

static inline rynsubmit_argument rynsubmit_unsigned(unsigned width, uint64_t value) {
  rynsubmit_argument argument;
  argument.kind = RYNSUBMIT_UNSIGNED;
  argument.width = width;
  argument.value.u = value;
  return argument;
}

static inline rynsubmit_argument rynsubmit_i32(int32_t value) {
  return rynsubmit_signed(4, value);
}
static inline rynsubmit_argument rynsubmit_i64(int64_t value) {
  return rynsubmit_signed(8, value);
}
static inline rynsubmit_argument rynsubmit_u32(uint32_t value) {
  return rynsubmit_unsigned(4, value);
}
static inline rynsubmit_argument rynsubmit_u64(uint64_t value) {
  return rynsubmit_unsigned(8, value);
}

/* NULL gives a null string. */
static inline rynsubmit_argument rynsubmit_string(const char *text) {
  rynsubmit_argument argument;
  argument.kind = !text ? RYNSUBMIT_NULL_STRING : RYNSUBMIT_STRING;
  argument.width = 0;
  argument.value.s = text;
  return argument;
}

/*
 * Connect to the daemon's user context, $CORVANE_ROOT/var/run/corvane/ryn-user.sock.
 *
 * timeout_ms bounds this call, and each later one: milliseconds, 0 for not waiting at all, negative for waiting without
 * end. It covers a daemon that is not there yet or is being started anew, one that has no room for a further
 * connection, and one that takes nothing. On success *connection is a new connection, else NULL.
 *
 * The daemon serves eight connections at once, of all programs: keep one no longer than it is of use.
 *
 * ENOENT, ECONNREFUSED  no daemon has served the context for timeout_ms
 * EACCES                the caller may not use it
 * ETIMEDOUT             more callers wait than the daemon's backlog holds
 * ENAMETOOLONG          CORVANE_ROOT makes the socket's path longer than 107 characters
 * ENOMEM, EMFILE, ...   as malloc(3), socket(2) and connect(2)
 */
RYNSUBMIT_API int rynsubmit_connect(int timeout_ms, rynsubmit **connection);

/*
 * Submit one observation: its id, which must begin with "ryn.user.", its message (NULL for none) and count arguments.
 * It is stamped with the time of day. The observation is taken whole or not at all.
 *
 * 0 means that the daemon has taken it; with a timeout_ms of 0, that the kernel has, and a daemon that ends before it
 * has read it, or that has no room for the connection, loses it. A connection that was cut, by a restart of the daemon
 * or because it had no room, is made again and the observation sent again. One that a program has closed together with
 * all its descriptors is made again, too, and whatever has its number then is left alone. A process that was forked
 * makes its own.
 *
 * EINVAL                an id, argument kind, width or value that the daemon would discard
 * EMSGSIZE              a record of more than RYNSUBMIT_MAX_RECORD bytes, or than a socket of this host holds
 * ETIMEDOUT             the daemon has not taken it for timeout_ms; it still may, so that one who submits it again may
 *                       be heard twice
 * ENOMEM                no memory for the record
 * others                as rynsubmit_connect
 */
RYNSUBMIT_API int rynsubmit_submit(rynsubmit *connection, const char *id, const char *message,
                                   const rynsubmit_argument *arguments, size_t count);

/* Close a connection; NULL does nothing. What the kernel has taken is delivered all the same. */
RYNSUBMIT_API void rynsubmit_close(rynsubmit *connection);

#ifdef __cplusplus
}
#endif

#endif
