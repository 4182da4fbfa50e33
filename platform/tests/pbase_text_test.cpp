#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale>
#include <sstream>

#include "pbase/CConfigLoader.h"
#include "pbase/System.h"
#include "test_support.h"

namespace Pexal {
namespace {

using Config::CConfigLoader;
using platform_test::nested;
using Utils::jsonToString;
using Utils::stringToJson;

TEST(JsonTest, ReadsEveryKindOfValue) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"null", "null"},
      {" \t\r\n[ ] ", "[]"},
      {"{}", "{}"},
      {"\xEF\xBB\xBF{\"b\":[true,false],\"a\":{\"\":null}}", R"({"a":{"":null},"b":[true,false]})"},
      {"[0,-0,-1,9223372036854775807,-9223372036854775808,18446744073709551615]",
       "[0,0,-1,9223372036854775807,-9223372036854775808,18446744073709551615]"},
      {"[1.0,-2.5E-1,1e2,100000000000000000000,1e-999]", "[1.0,-0.25,100.0,1e+20,0.0]"},
      {R"("\"\\\/\b\f\n\r\t\u0041\u00e9\u20ac\ud83d\ude00")",
       R"("\"\\/\b\f\n\r\tA\u00e9\u20ac\ud83d\ude00")"},
      {"\"caf\xC3\xA9 \xF0\x9F\x98\x80\"", R"("caf\u00e9 \ud83d\ude00")"},
      {R"("[[{{\"]]")", R"("[[{{\"]]")"},
      {R"("\u0000")", R"("\u0000")"}};
  for (const auto& [text, printed] : cases) {
    Json::Value value;
    ASSERT_TRUE(stringToJson(text, value)) << text;
    EXPECT_EQ(jsonToString(value), printed);
  }
}

TEST(JsonTest, RefusesWhatIsNotJsonAndLeavesTheOutputAlone) {
  using namespace std::string_literals;
  std::vector<std::string> cases = {"", "1\0"s, "\0"s, "\"a\nb\"", nested(65)};
  cases.insert(cases.end(),
               {nested(1000), nested(1000, "{\"a\":", "}"), std::string(2'000'000, '['),
                std::string(Utils::kMaxJsonBytes, ' ') + "1"});
  std::istringstream texts(  // one between two bars
      R"( |tru|nullx|1 2|{} x|[1,]|[,1]|[1 2]|{"a":1,}|{"a" 1}|{a:1}|{1:2}|{"a":}|{|[|]|[}|"|"\|'a'|)"
      R"(01|-|[-]|+1|1.|.5|1e|1e+|0x10|1e999|-1e999|NaN|Infinity|-Infinity|"\x"|"\u12"|"\u12g4"|)"
      R"("\ud800"|"\udc00"|"\ud800\u0041"|/*c*/1|1//c|{"a":1,"a":2})");
  for (std::string text; std::getline(texts, text, '|');) cases.push_back(text);
  const Json::Value before = "untouched";
  for (const auto& text : cases) {
    Json::Value value = before;
    EXPECT_FALSE(stringToJson(text, value)) << text.substr(0, 40);
    EXPECT_EQ(value, before);
  }
}

TEST(JsonTest, BoundsAreInclusive) {
  Json::Value value;
  EXPECT_TRUE(stringToJson(nested(Utils::kMaxJsonDepth), value));
  EXPECT_TRUE(stringToJson(std::string(Utils::kMaxJsonBytes - 1, ' ') + "1", value));
  std::string siblings = "[";  // depth is nesting, not the number of brackets
  for (int i = 0; i < 1000; ++i) siblings += "[],";
  EXPECT_TRUE(stringToJson(siblings + "[]]", value));
}

TEST(JsonTest, PrintsValidJsonWhateverTheValueHolds) {
  Json::Value value;
  value["list"].append(std::numeric_limits<double>::infinity());
  value["list"].append(-std::numeric_limits<double>::infinity());
  value["nan"] = std::nan("");
  value["text"] = "no UTF-8: \xFF";
  EXPECT_EQ(jsonToString(value), R"({"list":[null,null],"nan":null,"text":"no UTF-8: \ufffd"})");
  EXPECT_TRUE(std::isnan(value["nan"].asDouble())) << "the caller's document stays as it is";
}

TEST(JsonTest, RealsComeBackAsTheyWere) {
  for (const double number : {0.1, 1.0 / 3, -1e-300, 5e-324, 1.7976931348623157e308, 1e22, 3.0}) {
    Json::Value back;
    ASSERT_TRUE(stringToJson(jsonToString(number), back));
    EXPECT_EQ(back.type(), Json::realValue);
    EXPECT_EQ(back.asDouble(), number);
  }
}

struct CommaLocale : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(JsonTest, TheApplicationsLocaleDoesNotMatter) {
  const auto before = std::locale::global(std::locale(std::locale::classic(), new CommaLocale));
  Json::Value value;
  EXPECT_TRUE(stringToJson("[1.5,1234567,1e3]", value));
  EXPECT_EQ(jsonToString(value), "[1.5,1234567,1000.0]");
  std::locale::global(before);
}

TEST(UuidTest, IsARandomUuid) {
  const std::string first = Utils::createRandomUUID();
  EXPECT_THAT(first, testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
                                           "[0-9a-f]{12}"));
  EXPECT_NE(first, Utils::createRandomUUID());
  EXPECT_NE(Utils::createRandomUUIDBytes(), Utils::createRandomUUIDBytes());
}

class FileTest : public testing::Test {
 protected:
  FileTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "pbase.XXXXXX").string();
    directory_ = ::mkdtemp(pattern.data());
  }
  ~FileTest() override { std::filesystem::remove_all(directory_); }

  std::string write(const std::string& name, const std::string& text) {
    std::ofstream(directory_ / name, std::ios::binary) << text;
    return path(name);
  }
  std::string path(const std::string& name) const { return (directory_ / name).string(); }

  std::filesystem::path directory_;
};

TEST_F(FileTest, LoadsAConfiguration) {
  Json::Value config;
  EXPECT_TRUE(CConfigLoader::instance()->loadConfig(write("good", "{\"a\": [1]}\n"), config));
  EXPECT_EQ(jsonToString(config), R"({"a":[1]})");
}

TEST_F(FileTest, RefusesWhatIsNoConfigurationAndLeavesTheOutputAlone) {
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  std::filesystem::create_directory(directory_ / "directory");
  std::filesystem::create_symlink("nowhere", directory_ / "dangling");
  std::filesystem::resize_file(write("huge", ""), (4U << 20) + 1);
  write("empty", "");
  write("broken", "{\"a\": ");
  std::vector<std::string> cases = {"", "/dev/zero", path("good") + std::string("\0x", 2)};
  for (const char* const name :
       {"missing", "fifo", "directory", "dangling", "huge", "empty", "broken"}) {
    cases.push_back(path(name));
  }
  for (const auto& file : cases) {
    Json::Value config = "untouched";
    EXPECT_FALSE(CConfigLoader::instance()->loadConfig(file, config)) << file;
    EXPECT_EQ(config, "untouched");
  }
  std::string text = "untouched";
  EXPECT_FALSE(CConfigLoader::readFile(path("huge"), text));
  EXPECT_EQ(text, "untouched");
}

TEST_F(FileTest, ReadsFilesWholeWhateverTheirSizeIsSaidToBe) {
  std::string text;
  ASSERT_TRUE(CConfigLoader::readFile(write("nul", std::string("a\0b\n", 4)), text));
  EXPECT_EQ(text, std::string("a\0b\n", 4));
  std::filesystem::resize_file(path("nul"), 4U << 20);
  ASSERT_TRUE(CConfigLoader::readFile(path("nul"), text));
  EXPECT_EQ(text.size(), 4U << 20);
  ASSERT_TRUE(CConfigLoader::readFile("/proc/self/status", text));
  EXPECT_THAT(text, testing::HasSubstr("Pid:"));
}

TEST_F(FileTest, ExistFollowsLinks) {
  using PBase::File;
  std::filesystem::create_symlink("nowhere", directory_ / "dangling");
  std::filesystem::create_symlink(directory_, directory_ / "link");
  EXPECT_TRUE(File::exist(write("file", "")));
  EXPECT_TRUE(File::exist(path("link")));
  EXPECT_FALSE(File::exist(path("dangling")));
  EXPECT_FALSE(File::exist(""));
  EXPECT_FALSE(File::exist(path("file") + std::string("\0", 1) + "x"));
}

}  // namespace
}  // namespace Pexal
