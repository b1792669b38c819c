// Small files of the kernel and of this program, read whole. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rynlinuxd {

/// Read at most `most` bytes of the file at `path`. 0, EFBIG when there are more, or another errno value. Never waits
/// for a pipe.
int ReadTextFile(const std::string &path, size_t most, std::string *text);
/// The first line of a small file; "" when it can't be read.
std::string ReadLine(const std::string &path);
/// The whole of a small file as one number. False when it is none.
bool ReadNumber(const std::string &path, uint64_t *number);
/// The names in a folder but "." and "..", in no order. 0; or an errno value, and then `names` may lack some.
int ListFolder(const std::string &path, std::vector<std::string> *names);

}  // namespace rynlinuxd
