#include "models/mountTable.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <unordered_set>

namespace rynlinuxd {
namespace {

constexpr auto kRemoteTypes = std::to_array<std::string_view>(
    {"nfs", "nfs4", "cifs", "smb3", "ceph", "glusterfs", "lustre", "afs", "9p", "virtiofs", "gfs2", "ocfs2", "fuse"});
constexpr auto kPooledTypes = std::to_array<std::string_view>({"btrfs", "zfs", "bcachefs"});
constexpr auto kFullTypes = std::to_array<std::string_view>({"iso9660", "udf", "squashfs", "erofs", "cramfs", "romfs"});

template <typename List>
bool Holds(const List &list, std::string_view what) {
  return std::find(list.begin(), list.end(), what) != list.end();
}

/// Whether the list of options `options` has `option`.
bool HasOption(std::string_view options, std::string_view option) {
  while (true) {
    const size_t comma = options.find(',');
    if (options.substr(0, comma) == option) return true;
    if (comma == std::string_view::npos) return false;
    options.remove_prefix(comma + 1);
  }
}

MountKind KindOf(const Mount &mount) {
  if (mount.type == "tmpfs") return MountKind::kRamdisk;
  if (Holds(kRemoteTypes, mount.type) || mount.type.starts_with("fuse.")) return MountKind::kRemote;
  if (Holds(kFullTypes, mount.type)) return MountKind::kIgnored;
  if (Holds(kPooledTypes, mount.type)) return MountKind::kDisk;
  return mount.device.starts_with("0:") ? MountKind::kIgnored : MountKind::kDisk;
}

/// The next word of `line`, which loses it.
std::string_view TakeWord(std::string_view *line) {
  const size_t blank = std::min(line->find(' '), line->size());
  const std::string_view word = line->substr(0, blank);
  line->remove_prefix(std::min(blank + 1, line->size()));
  return word;
}

/// One line: "36 35 98:0 /root /point options optional... - type source options". False when it is none.
bool ParseLine(std::string_view line, Mount *mount, bool *isWhole) {
  TakeWord(&line);
  TakeWord(&line);
  mount->device = TakeWord(&line);
  *isWhole = TakeWord(&line) == "/";
  mount->point = UnescapeMount(TakeWord(&line));
  const std::string_view options = TakeWord(&line);
  const size_t separator = line.starts_with("- ") ? 0 : line.find(" - ");
  if (separator == std::string_view::npos) return false;
  line.remove_prefix(separator + (separator == 0 ? 2 : 3));
  mount->type = UnescapeMount(TakeWord(&line));
  mount->source = UnescapeMount(TakeWord(&line));
  const std::string_view superOptions = TakeWord(&line);
  mount->isReadOnly = HasOption(options, "ro") || HasOption(superOptions, "ro");
  mount->isEmergency = HasOption(superOptions, "emergency_ro");
  mount->kind = KindOf(*mount);
  return !mount->type.empty();
}

}  // namespace

std::string UnescapeMount(std::string_view text) {
  std::string plain;
  const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
        isOctal(text[i + 3])) {
      plain += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

std::vector<Mount> ParseMounts(std::string_view mountInfo) {
  std::vector<Mount> mounts;
  std::vector<bool> whole;
  std::unordered_map<std::string, size_t> ofDevice;
  std::unordered_map<std::string, size_t> ofPoint;
  std::unordered_set<size_t> hidden;
  while (!mountInfo.empty()) {
    const size_t end = std::min(mountInfo.find('\n'), mountInfo.size());
    Mount mount;
    bool isWhole = false;
    if (ParseLine(mountInfo.substr(0, end), &mount, &isWhole)) {
      const size_t index = mounts.size();
      // Whatever is mounted there later is what the name stands for.
      if (const auto [at, isNew] = ofPoint.try_emplace(mount.point, index); !isNew) {
        hidden.insert(at->second);
        at->second = index;
      }
      mounts.push_back(std::move(mount));
      whole.push_back(isWhole);
    }
    mountInfo.remove_prefix(std::min(end + 1, mountInfo.size()));
  }
  for (size_t i = 0; i < mounts.size(); ++i) {
    if (hidden.contains(i)) continue;
    const auto [at, isNew] = ofDevice.try_emplace(mounts[i].device, i);
    if (!isNew && whole[i] && !whole[at->second]) at->second = i;
  }
  std::vector<Mount> chosen;
  for (size_t i = 0; i < mounts.size(); ++i) {
    const auto at = ofDevice.find(mounts[i].device);
    if (at != ofDevice.end() && at->second == i) chosen.push_back(std::move(mounts[i]));
  }
  return chosen;
}

}  // namespace rynlinuxd
