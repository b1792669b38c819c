// One record for the journal of the host, however long it is. Any thread.
#pragma once

#include <sys/uio.h>

#include <cstddef>

#include "hosted/log/logSocket.h"

namespace hosted {

/// Send the record that the `count` parts make together, in the journal's native form; when no datagram holds it, as a
/// sealed file. Waits as LogSocket::Send does. kTooLong when there is no memory for that file.
SendResult SendJournalDatagram(LogSocket *socket, iovec *parts, size_t count);

}  // namespace hosted
