// Part of the build: writes what is made of the catalogue into a folder. One thread.
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "catalog/json.h"
#include "generate/documents.h"

namespace {

void Write(const std::string &folder, const std::string &name, const std::string &text) {
  std::ofstream file(folder + "/" + name, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + folder + "/" + name);
}

}  // namespace

int main(int argc, char **argv) {
  try {
    if (argc != 3) throw std::runtime_error("usage: catalog_generate FOLDER DATE");
    const std::string folder = argv[1];
    Write(folder, "rynd-events.7", catalog::ManualPage(argv[2]));
    Write(folder, "events.html", catalog::HtmlPage());
    Write(folder, "rynd.catalog", catalog::JournalCatalog());
    Write(folder, "catalog.json", catalog::WholeCatalog().dump(1) + "\n");
    Write(folder, "rynctl.bash", catalog::BashCompletion());
    return 0;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "catalog_generate: %s\n", error.what());
    return 1;
  }
}
