#include "loop/options.h"

#include <getopt.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "sink/textFile.h"

namespace rynlinuxd {
namespace {

constexpr char kConfig[] = "/etc/rynd/linux.conf";
constexpr size_t kMostConfig = 65536;

constexpr option kLongOptions[] = {
    {"check", no_argument, nullptr, 'c'},
    {"dry-run", no_argument, nullptr, 'd'},
    {"sources", required_argument, nullptr, 's'},
    {"nics", required_argument, nullptr, 'n'},
    {"netlink-buffer", required_argument, nullptr, 'b'},
    {"poll", required_argument, nullptr, 'p'},
    {"smartd", no_argument, nullptr, 'm'},
    {"config", required_argument, nullptr, 'f'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

std::string Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return "";
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) + 1 - first));
}

std::vector<std::string> SplitList(std::string_view text) {
  std::vector<std::string> parts;
  while (true) {
    const size_t comma = text.find(',');
    if (std::string part = Trimmed(text.substr(0, comma)); !part.empty()) parts.push_back(std::move(part));
    if (comma == std::string_view::npos) return parts;
    text.remove_prefix(comma + 1);
  }
}

bool ParseInteger(const std::string &text, int least, int most, int *value) {
  int parsed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size() || parsed < least || parsed > most) return false;
  *value = parsed;
  return true;
}

/// Take one setting. "" or what is wrong.
std::string Apply(const std::string &name, const std::string &value, Options *options) {
  if (name == "sources") {
    options->sources = SplitList(value);
  } else if (name == "nics") {
    options->nics = SplitList(value);
  } else if (name == "netlink-buffer") {
    if (!ParseInteger(value, 1024, 1 << 28, &options->netlinkBuffer))
      return "netlink-buffer: '" + value + "' is no number of bytes from 1024 to 268435456";
  } else if (name == "poll") {
    if (!ParseInteger(value, 1, 86400, &options->pollS))
      return "poll: '" + value + "' is no number of seconds from 1 to 86400";
  } else {
    return "no setting is called '" + name + "'";
  }
  return "";
}

std::string ReadConfig(const std::string &path, bool mustExist, Options *options) {
  std::string text;
  const int error = ReadTextFile(path, kMostConfig, &text);
  if (error == ENOENT && !mustExist) return "";
  if (error != 0) return "cannot read " + path + ": " + std::strerror(error);
  const std::string wrong = ParseSettings(text, options);
  return wrong.empty() ? "" : path + ": " + wrong;
}

}  // namespace

std::string ParseSettings(const std::string &text, Options *options) {
  size_t number = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = Trimmed(std::string_view(text).substr(at, end - at));
    at = end + 1;
    ++number;
    if (line.empty() || line.front() == '#') continue;
    const std::string where = "line " + std::to_string(number) + ": ";
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
      return std::string(where).append("'").append(line).append("' is not of the form name = value");
    }
    const std::string name = Trimmed(std::string_view(line).substr(0, equals));
    const std::string wrong = Apply(name, Trimmed(std::string_view(line).substr(equals + 1)), options);
    if (!wrong.empty()) return where + wrong;
  }
  return "";
}

Options ParseOptions(int argc, char **argv, std::string *error) {
  Options options;
  std::string config;
  std::vector<std::pair<std::string, std::string>> given;
  const auto wrong = [&](std::string text) {
    *error = std::move(text);
    options.action = Options::Action::kWrong;
    return options;
  };
  opterr = 0;
  for (int letter, index = -1; (letter = getopt_long(argc, argv, "h", kLongOptions, &index)) != -1;) {
    switch (letter) {
      case 'h':
        options.action = Options::Action::kHelp;
        return options;
      case 'v':
        options.action = Options::Action::kVersion;
        return options;
      case 'c':
        options.action = Options::Action::kCheck;
        break;
      case 'm':
        options.action = Options::Action::kSmartd;
        break;
      case 'd':
        options.dryRun = true;
        break;
      case 'f':
        config = optarg;
        break;
      case '?':
        return wrong(std::string("'") + argv[optind - 1] + "' is no option, or lacks its value; see --help");
      default:
        given.emplace_back(kLongOptions[index].name, optarg);
    }
  }
  if (optind < argc) return wrong(std::string("'") + argv[optind] + "' is no option; see --help");
  if (std::string text = ReadConfig(config.empty() ? kConfig : config, !config.empty(), &options); !text.empty())
    return wrong(std::move(text));
  for (const auto &[name, value] : given) {
    if (std::string text = Apply(name, value, &options); !text.empty()) return wrong(std::move(text));
  }
  return options;
}

const char *Usage() {
  return "Usage: rynlinuxd [options]\n"
         "Watches this Linux host and submits what goes wrong to rynd, until SIGTERM or SIGINT.\n\n"
         "  --check                say of every source whether it can watch, and exit\n"
         "  --dry-run              print observations instead of submitting them\n"
         "  --sources A,B          only these sources\n"
         "  --nics PATTERN,...     links that count as physical though they have no device, such as veth*\n"
         "  --poll SECONDS         between two looks at what must be polled; default 60\n"
         "  --netlink-buffer N     bytes of the link messages' buffer; default 1048576\n"
         "  --config FILE          lines \"name = value\" with these names; default /etc/rynd/linux.conf\n"
         "  --smartd               tell what smartd, which calls this, says of a disk, and exit\n"
         "  --help, --version\n";
}

}  // namespace rynlinuxd
