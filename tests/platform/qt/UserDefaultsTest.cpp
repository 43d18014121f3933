#include "platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
namespace UserDefaults = platform::UserDefaults;

fs::path file() {
  return fs::path(std::getenv("XDG_CONFIG_HOME")) / "Velmor" / "Pellix.conf";
}

/// Makes `text` the content of the file. The old one goes first: a change within the same clock
/// tick and of the same size would go unnoticed.
void setFile(const std::string& text) {
  fs::create_directories(file().parent_path());
  fs::remove(file());
  UserDefaults::boolForKey("notice");
  makeFile(file(), text);
}

TEST(UserDefaults, integersAreWholeDecimalNumbersThatFit) {
  const std::pair<const char*, long long> rows[] = {
      {"8787", 8787},
      {"0", 0},
      {"-1", -1},
      {"65536", 65536},
      {"0080", 80},
      {"9223372036854775807", 9223372036854775807},
      {"9223372036854775808", 0},
      {"99999999999999999999999999", 0},
      {"", 0},
      {"+80", 80},
      {"80x", 0},
      {"0x50", 0},
      {"8e3", 0},
      {"80.0", 0},
      {"80,81", 0},
      {"8 0", 0},
      {"\"8787\"", 8787},
      {"true", 0},
      {"\xff\xfe", 0},
      {"@Invalid()", 0},
      {"@Variant(\\0\\0\\0\\x7f\\xff\\xff\\xff\\xff)", 0},
      {"@Point(1 2)", 0},
  };
  for (const auto& [text, value] : rows) {
    setFile("[General]\nport=" + std::string(text) + "\n");
    EXPECT_EQ(UserDefaults::integerForKey("port"), value) << text;
  }
}

TEST(UserDefaults, booleansAreWordsOrNumbers) {
  const std::pair<const char*, bool> rows[] = {
      {"true", true},    {"TRUE", true},   {"yes", true},        {"1", true},           {"2", true},
      {"-1", true},      {"false", false}, {"no", false},        {"0", false},          {"", false},
      {"truely", false}, {"on", false},    {"true,true", false}, {"@Invalid()", false},
  };
  for (const auto& [text, value] : rows) {
    setFile("[General]\nvlx_welcomed=" + std::string(text) + "\n");
    EXPECT_EQ(UserDefaults::boolForKey("vlx_welcomed"), value) << text;
  }
}

TEST(UserDefaults, aBooleanIsOnDiskAtOnce) {
  setFile("[General]\nport=9000\n");
  UserDefaults::setBool(true, "vlx_welcomed");
  const std::string content = contentOf(file());
  EXPECT_NE(content.find("vlx_welcomed=true"), std::string::npos) << content;
  EXPECT_NE(content.find("port=9000"), std::string::npos) << content;
}

TEST(UserDefaults, aFileThatMakesNoSenseIsEmpty) {
  std::string bytes;
  for (int i = 0; i < 100'000; ++i) bytes += static_cast<char>(i * 7919 >> 3);
  for (const std::string& text :
       {bytes, std::string(1'000'000, '['), std::string("port"), std::string("=\n=\n"),
        std::string(1000, '\0'), std::string("port=\\x\\x110000\\0"), std::string("[%zz%]\n%=1\n"),
        "[General]\nother=@Variant(" + bytes + ")\n"}) {
    setFile(text);
    EXPECT_EQ(UserDefaults::integerForKey("port"), 0);
    EXPECT_FALSE(UserDefaults::boolForKey("vlx_welcomed"));
  }
}

TEST(UserDefaults, whatCannotBeWrittenIsLost) {
  fs::remove_all(file().parent_path());
  makeFile(file().parent_path(), "in the way");
  UserDefaults::setBool(true, "vlx_welcomed");
  EXPECT_EQ(UserDefaults::integerForKey("port"), 0);
  EXPECT_EQ(contentOf(file().parent_path()), "in the way");
}

}  // namespace
