// What rynctl asks the agent: one JSON object on a line, answered by one JSON object up to the end of the connection.
//   {"do":"status"}                           {"works":true,"problem":"","version":"...", ...}
//   {"do":"problems"}                         {"problems":[...]}: what is open, the worst first
//   {"do":"ack","id":17,"subject":"naa.1"}    {"ended":1}; without a subject all of that event's
// What can't be done is answered by {"error":"..."}.
#pragma once

namespace mgmtd {

/// The socket, below the root; members of its group may ask.
constexpr char kControlSocket[] = "/var/run/corvane/mgmtd-control.sock";
/// The store's file, below the root.
constexpr char kStoreFile[] = "/var/lib/corvane/mgmtd/events.db";

}  // namespace mgmtd
