#include "correlators/catalog.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "testing/testRoot.h"

namespace rynd {
namespace {

/// The post formats that the daemon's program holds, wherever its sources have them.
std::set<std::string> FormatsOfTheProgram() {
  const std::string program = testing_support::ReadFile(RYND_PROGRAM);
  std::set<std::string> formats;
  const std::string marker = std::string(kEventMarker) + "amb.";
  for (size_t at = program.find(marker); at != std::string::npos; at = program.find(marker, at + 1)) {
    formats.insert(program.c_str() + at);
  }
  return formats;
}

TEST(Catalog, HoldsEveryMessageThatTheProgramCanPost) {
  const std::set<std::string> formats = FormatsOfTheProgram();
  ASSERT_FALSE(formats.empty());
  for (const std::string &format : formats) {
    const size_t end = format.find(')');
    const CatalogMessage *message = FindCatalogMessage(std::string_view(format).substr(8, end - 8));
    ASSERT_NE(message, nullptr) << format;
    EXPECT_EQ(message->message, format.substr(end + 1));
    EXPECT_TRUE(message->name.starts_with(EventNamespace(message->category))) << format;
  }
  // No two messages have one name.
  EXPECT_EQ(Catalog().size(), formats.size());
  EXPECT_EQ(FindCatalogMessage("amb.problem.storage"), nullptr);
}

}  // namespace
}  // namespace rynd
