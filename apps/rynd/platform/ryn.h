// The observation library: contexts that raw records are read from, and the Observation made from one record.
// Declarations only; a platform library provides them. Contexts are used by the poll loop's thread alone; an
// Observation belongs to one thread at a time.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

struct Observation;
struct RynLibContext;
using RynLibHandle = RynLibContext *;

constexpr uint32_t kRynAsyncContexts = 29;  ///< kernel contexts 0 to 28
constexpr uint32_t kRynUserContext = 29;    ///< the user-level context's id
constexpr size_t kRynLibNameSize = 32;      ///< room for a context's name, NUL included
constexpr int kRynLibTooSmall = 27;         ///< RynLib_ReadFromFd: the buffer is too small for the next record

/// Open kernel context `id` (0 to 28). 0 and its handle, or a positive status.
int RynLib_AsyncContextOpen(uint32_t id, RynLibHandle *handle);
/// Open the user-level context (id 29), a listening endpoint. 0 and its handle, or a positive status.
int RynLib_UserContextOpen(uint32_t id, RynLibHandle *handle);
/// Accept one user connection. 0 and its descriptor, which RynLib_UserContextCloseCnx closes, or a positive status.
int RynLib_UserContextNewCnx(RynLibHandle handle, int *fd);
/// Close one user connection; one that was never read from counts as refused, and is logged. 0, or negative when `fd`
/// is none, or when its last read stopped at a flood of bad records and more may wait behind them: read again.
int RynLib_UserContextCloseCnx(int fd);
/// Which program sent the record that was last read from a user connection; before the first, which one has connected.
/// 0, or ENOENT when `fd` is none.
int RynLib_UserConnectionSender(int fd, int32_t *pid, uint32_t *uid);
/// The pollable descriptor of a context, borrowed. 0 or a positive status.
int RynLib_HandleToFd(RynLibHandle handle, int *fd);
/// The context's name, for diagnostics, into kRynLibNameSize bytes. 0 or a positive status.
int RynLib_HandleToName(RynLibHandle handle, char *name);
/// Read the next well-formed record, and up to 15 behind it as long as they fit, back to back. 0 with their length in
/// bytes, at most 131071 (0: nothing to dispatch); kRynLibTooSmall, leaving the record there, when the first has more
/// than `size` bytes; any other positive status: the context failed. Never blocks.
int RynLib_ReadFromFd(int fd, std::byte *buffer, size_t size, size_t *length);
/// Discard what is pending on a context. 0 or a positive status.
int RynLib_Reset(RynLibHandle handle);
/// Close a context and free its handle. 0 or a positive status.
int RynLib_Close(RynLibHandle handle);

/// Make an Observation from one raw record of `length` bytes; it owns `bytes` (an array made by new[]) from then on.
/// 0, or a positive status with `*observation` null, when the caller keeps `bytes`.
int Ryn_MakeRyn(std::byte *bytes, size_t length, Observation **observation);
/// Free an Observation; null does nothing.
void Ryn_Free(Observation *observation);

// Accessors return 0, or one of these positive statuses.
constexpr int kRynNoArgument = 75;  ///< no such argument
constexpr int kRynWrongKind = 22;   ///< an argument of another kind
constexpr int kRynOutOfRange = 34;  ///< an integer that does not fit the output

/// The id, owned by the Observation.
int Ryn_GetID(const Observation *observation, const char **id);
/// A new copy of the message text, which the caller frees with free(). `second` is set to null; nothing uses it.
int Ryn_GetMsg(const Observation *observation, char **message, char **second);
/// The message text, owned by the Observation; null when it lacks its end and has to be copied.
const char *Ryn_ViewMsg(const Observation *observation);
/// Microseconds since the epoch.
int Ryn_GetTimestamp(const Observation *observation, uint64_t *microseconds);
/// Argument `index` (from 0) as text owned by the Observation; a null string gives a null pointer.
int Ryn_GetStringArg(const Observation *observation, uint32_t index, const char **text);
/// Argument `index` (from 0) as a 32-bit integer.
int Ryn_GetIntArg(const Observation *observation, uint32_t index, int32_t *value);
/// All arguments by a scanf-like format such as "%p %d %lu" or "%2$u"; one output pointer a conversion, of the width
/// that its length modifier says. Outputs are written up to the first failure.
int Ryn_GetArgs(const Observation *observation, const char *format, ...);
int Ryn_GetArgsVA(const Observation *observation, const char *format, va_list outputs);
/// What an argument is and holds, for diagnostics. `bits` is an integer of `width` bytes (1, 2, 4 or 8) extended to 64
/// bits by its kind; `text` a string owned by the Observation.
struct RynArg {
  enum class Kind : uint8_t { kSigned = 1, kUnsigned = 2, kString = 3, kNullString = 4 };
  Kind kind;
  uint8_t width;
  uint64_t bits;
  const char *text;
};
/// Argument `index` (from 0), of whatever kind.
int Ryn_GetArg(const Observation *observation, uint32_t index, RynArg *argument);
/// True when `id` is `exactId` or "ryn." followed by it; false when either is null.
bool Ryn_IsID(const char *id, const char *exactId);
