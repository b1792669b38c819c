// Part of the build: writes the catalogue's texts as C++, together with what the daemon's own code says, so that a
// program can have the catalogue without the daemon's correlators. The runner is replaced: it keeps what each agent
// asks of it instead of serving the agent. One thread.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/agents/runner.h"
#include "correlators/agentTable.h"
#include "correlators/catalog.h"

namespace {

using Json = nlohmann::ordered_json;
Json agentOf = Json::object();  ///< the name of each observation's agent

void Keep(const char *name, const rynd::HandlerTable &table) {
  for (const std::string_view id : table.Ids()) agentOf[std::string(id)] = name;
}

/// What the daemon posts and handles.
Json DaemonJson() {
  for (const rynd::AgentFunction agent : rynd::AgentTable()) agent();
  Json events = Json::object();
  for (const rynd::CatalogMessage &message : rynd::Catalog()) {
    std::string_view word = rynd::EventNamespace(message.category);  // "amb.problem."
    word = word.substr(4, word.size() - 5);
    events[std::string(message.name)] = {{"category", word}, {"message", message.message}};
  }
  return {{"events", events}, {"observations", agentOf}};
}

Json ReadJson(const std::string &path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot open " + path);
  try {
    return Json::parse(file);
  } catch (const Json::exception &error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

/// `text` as an array of literals that any compiler takes.
void WriteText(const std::string &name, const std::string &text, std::ofstream *out) {
  constexpr size_t kPiece = 30000;
  *out << "constexpr std::string_view " << name << "[] = {\n";
  for (size_t at = 0; at < text.size();) {
    // Cut at a line's end, never inside of a character.
    const size_t end = text.size() - at <= kPiece ? text.size() : text.rfind('\n', at + kPiece) + 1;
    *out << "R\"~~(" << text.substr(at, end - at) << ")~~\",\n";
    at = end;
  }
  *out << "};\n";
}

void Write(const std::string &path, const std::vector<std::string> &sources) {
  std::ofstream out(path);
  out << "// Made by the build.\n#include \"catalog/texts.h\"\nnamespace catalog {\nnamespace {\n";
  WriteText("kText0", DaemonJson().dump(0), &out);
  std::string table = "{\"the daemon\", kText0},\n";
  for (size_t i = 0; i < sources.size(); ++i) {
    const std::string text = "kText" + std::to_string(i + 1);
    WriteText(text, ReadJson(sources[i]).dump(0), &out);
    table += "{\"" + sources[i].substr(sources[i].rfind('/') + 1) + "\", " + text + "},\n";
  }
  out << "constexpr EmbeddedText kAll[] = {\n"
      << table << "};\n}  // namespace\n"
      << "const std::span<const EmbeddedText> kTexts = kAll;\n}  // namespace catalog\n";
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path);
}

}  // namespace

namespace rynd {

void RunCorrelatorFiltered(const char *name, const std::vector<const char *> & /*prefixes*/,
                           const std::vector<const char *> & /*exactIds*/, Handler /*defaultHandler*/,
                           HandlerTable table) {
  Keep(name, table);
}
void RunCorrelatorWithTimer(const char *name, const char * /*prefix*/, Handler /*defaultHandler*/, HandlerTable table,
                            void (* /*timerCallback*/)(), const int * /*extraFds*/, int /*extraFdCount*/) {
  Keep(name, table);
}
void DispatchObservation(Handler /*defaultHandler*/, HandlerTable * /*table*/, Observation * /*observation*/) {}

}  // namespace rynd

int main(int argc, char **argv) {
  try {
    if (argc < 3) throw std::runtime_error("usage: catalog_collect OUTPUT TEXT...");
    Write(argv[1], {argv + 2, argv + argc});
    return 0;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "catalog_collect: %s\n", error.what());
    return 1;
  }
}
