// The host tree: the host's state as a tree of small text files, read at every use. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace hosted {

/// `name` as one path component: '/', NUL, control characters, '%' and a leading dot as %XX; an empty name is "%", a
/// null one "%00".
std::string HostComponent(const char *name);

/// The file `path`, such as "sysinfo/system/systemUuid", of the tree.
std::string HostTreePath(std::string_view path);

// Each of the readers returns 0, ENOENT when there is no such file, EINVAL when it does not hold what it should, or
// another errno value. All but ENOENT are logged with the path.

/// Read one value; it may be empty.
int ReadHostText(std::string_view path, std::string *text);
/// Read as many decimal integers as `values` has, parted by blanks, each from `least` to `most`.
int ReadHostIntegers(std::string_view path, int64_t least, int64_t most, std::span<int64_t> values);
/// Read one decimal integer from `least` to `most`.
int ReadHostInteger(std::string_view path, int64_t least, int64_t most, int64_t *value);

/// Whether the tree has a file or a folder `path`: 0, ENOENT, ENAMETOOLONG or another errno value; none is logged.
int HostPathExists(std::string_view path);

/// The names that stand in the folder `path`, decoded, ordered byte-wise; none when there is no such folder. A name
/// that holds a NUL, or that no name is encoded as, is left out and logged, a hidden file silently. 0 or an errno
/// value, which is logged.
int ListHostFolder(std::string_view path, std::vector<std::string> *names);

/// Replace the file by one that holds `text` and a line end, making its folders. A reader sees the old value or the
/// new one. 0 or an errno value, which is logged with the path.
int WriteHostText(std::string_view path, std::string_view text);

/// Replace the file at the absolute `path` by one that holds exactly `content`, synced to the disk; also when the
/// process ends at any instant there is the old file or the new one. 0 or an errno value, which is logged.
int ReplaceFile(const std::string &path, std::string_view content);

/// Parse the whole of `text` as decimal integers. False, `values` untouched, when it is anything else or out of range.
bool ParseIntegers(std::string_view text, int64_t least, int64_t most, std::span<int64_t> values);

}  // namespace hosted
