// The motor layout record from a "getMotorLayout" answer, whatever that answer holds.

#include <cstring>

#include "scripted/ScriptedBus.h"
#include "service/ServiceAccess.h"
#include "service_support.h"

namespace service_test {
namespace {

using namespace orvane::RobotSdk;
using testing::ElementsAre;
using testing::IsEmpty;

std::string documentOf(const std::string& motorNum, const std::string& motors) {
  return R"({"motorNum": )" + motorNum + R"(, "motors": )" + motors + "}";
}

std::string emptyEntries(int count) {
  std::string text = "[";
  for (int i = 0; i < count; ++i) text += i == 0 ? "{}" : ",{}";
  return text + "]";
}

class Layout : public ServiceTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(start());
    log->take();
    std::memset(&record, 0x5a, sizeof record);
  }
  void TearDown() override { stop(); }
  bool parse(const std::string& text) { return service::parseMotorLayout(json(text), record); }
  [[nodiscard]] bool holds(const MotorLayout& expected) const {
    return std::memcmp(&record, &expected, sizeof record) == 0;
  }

  scripted::Bus bus;
  MotorLayout record;
};

TEST_F(Layout, EntriesAreFilledWithTheRestZeroAndOtherTypesReadAsAbsent) {
  ASSERT_TRUE(parse(documentOf("3", R"([{"limbNo": 1, "jointNo": 2, "name": "FL_hip"},
      {"limbNo": 65535, "jointNo": 0, "name": "a name that is longer than its field"},
      {"name": "exactly twenty-seven chars."}])")));
  EXPECT_TRUE(holds({3,
                     {{1, 2, "FL_hip"},
                      {65535, 0, "a name that is longer than "},
                      {0, 0, "exactly twenty-seven chars."}}}));

  ASSERT_TRUE(parse(documentOf("8", R"([7, null, "x", [], {"limbNo": -1, "jointNo": "3"},
      {"limbNo": 65536, "jointNo": 1.5, "name": 9}, {"limbNo": true, "name": {"a": 1}},
      {"limbNo": 1e300, "jointNo": 18446744073709551615}])")));
  EXPECT_TRUE(holds({8, {}}));
  EXPECT_TRUE(parse(documentOf("16", emptyEntries(16))));
  EXPECT_TRUE(parse(documentOf("0", "[]"))) << "none is a layout, too";
  EXPECT_TRUE(holds({0, {}}));
}

TEST_F(Layout, OtherDocumentsAreRejectedAndCountsThatDoNotMatchLogged) {
  for (const char* text :
       {"null", "[]", "3", "\"x\"", "{}", R"({"motorNum": 1})", R"({"motors": []})",
        R"({"motorNum": 1, "motors": {"0": {}}})", R"({"motorNum": 0, "motors": null})"}) {
    EXPECT_FALSE(parse(text)) << text;
  }
  EXPECT_THAT(log->take(), IsEmpty());

  const struct {
    const char* motorNum;
    int entries;
    std::string logged;
  } cases[] = {{"2", 3, "2"},
               {"17", 17, "17"},
               {"-1", 0, "4294967295"},
               {"\"2\"", 2, "4294967295"},
               {"1.5", 1, "4294967295"},
               {"null", 0, "4294967295"},
               {"true", 1, "4294967295"},
               {"4294967297", 1, "4294967295"}};
  for (const auto& row : cases) {
    EXPECT_FALSE(parse(documentOf(row.motorNum, emptyEntries(row.entries))));
    EXPECT_THAT(
        log->take(),
        ElementsAre(LogLine{3, " motor layout schema mismatch: motorNum=" + row.logged +
                                   " motors.size=" + std::to_string(row.entries) + " max=16\n"}));
  }
  MotorLayout untouched;
  std::memset(&untouched, 0x5a, sizeof untouched);
  EXPECT_TRUE(holds(untouched));
}

}  // namespace
}  // namespace service_test
