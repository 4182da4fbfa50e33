// The byte buffer: against a model with random operations, and what the model leaves out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "net/SmallBuffer.h"
#include "pbase/System.h"
#include "scripted/LogLines.h"

namespace {

using namespace orvane::RobotSdk;
using scripted::LogLine;
using testing::Each;
using testing::IsEmpty;
using Lines = std::vector<LogLine>;

constexpr int kMost = std::numeric_limits<std::int32_t>::max();

/// The reader and the writer of one kind of value, which goes as its bits.
struct Access {
  int width;
  std::uint64_t (*read)(SmallBuffer&, bool swapThis);
  void (*write)(SmallBuffer&, std::uint64_t bits, bool swapThis);
};
template <auto kRead, auto kWrite>
constexpr Access accessOf() {
  using Value = decltype((std::declval<SmallBuffer&>().*kRead)(true));
  return {sizeof(Value),
          [](SmallBuffer& buffer, bool swapThis) {
            const Value value = (buffer.*kRead)(swapThis);
            std::uint64_t bits = 0;
            std::memcpy(&bits, &value, sizeof(value));
            return bits;
          },
          [](SmallBuffer& buffer, std::uint64_t bits, bool swapThis) {
            Value value;
            std::memcpy(&value, &bits, sizeof(value));
            (buffer.*kWrite)(value, swapThis);
          }};
}
constexpr Access kAccesses[] = {
    {1, [](SmallBuffer& buffer, bool) { return std::uint64_t{buffer.readU8()}; },
     [](SmallBuffer& buffer, std::uint64_t bits, bool) {
       buffer.writeU8(static_cast<std::uint8_t>(bits));
     }},
    accessOf<&SmallBuffer::readU16, &SmallBuffer::writeU16>(),
    accessOf<&SmallBuffer::readU32, &SmallBuffer::writeU32>(),
    accessOf<&SmallBuffer::readU64, &SmallBuffer::writeU64>(),
    accessOf<&SmallBuffer::readFloat, &SmallBuffer::writeFloat>(),
};

/// A buffer that views the middle of a block, and a model of both: they are given the same
/// operations, and compared after each.
class Pair {
 public:
  explicit Pair(std::uint32_t seed) : random_(seed) {
    for (auto& byte : block_) byte = static_cast<std::uint8_t>(number(0, 255));
    wanted_ = block_;
    buffer_.view(block_.data() + kBase, size_, swap_, length_);
  }

  void step() {
    static constexpr void (Pair::*kSteps[])() = {
        &Pair::read,   &Pair::read,  &Pair::write, &Pair::write,       &Pair::moveCursors,
        &Pair::append, &Pair::drain, &Pair::fill,  &Pair::fillExpected};
    (this->*kSteps[number(0, std::size(kSteps) - 1)])();
    // Cursors leave the view, but must stay in the block.
    reset(std::abs(offset_) > kBase / 2, std::abs(length_) > kBase / 2);
    compare();
  }

 private:
  static constexpr int kBase = 1000;  // room before the view and behind it

  int number(int lowest, int highest) {
    return std::uniform_int_distribution<int>(lowest, highest)(random_);
  }
  bool chance() { return number(0, 1) == 1; }
  std::uint8_t& at(int position) { return wanted_.at(static_cast<std::size_t>(kBase + position)); }

  template <class... Parts>
  void complainUnless(bool holds, const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts) << '\n';
    if (!holds) lines_.push_back({5, text.str()});
  }

  void read() {
    const Access& access = kAccesses[number(0, std::size(kAccesses) - 1)];
    const bool swapThis = chance();
    complainUnless(offset_ + access.width <= length_, "out of size(", size_, "),offset:", offset_,
                   ",length:", length_);
    std::uint64_t bits = 0;  // the lowest byte is the first one, unless reversed
    for (int i = 0; i < access.width; ++i) {
      const int last = access.width - 1;
      const std::uint64_t byte = at(offset_ + (swapThis && swap_ ? last - i : i));
      bits |= byte << (8 * i);
    }
    EXPECT_EQ(access.read(buffer_, swapThis), bits);
    offset_ += access.width;
  }
  void write() {
    const Access& access = kAccesses[number(0, std::size(kAccesses) - 1)];
    const bool swapThis = chance();
    const auto bits = std::uniform_int_distribution<std::uint64_t>()(random_);
    complainUnless(length_ + access.width <= size_, "out of size(", size_, "),length:", length_);
    access.write(buffer_, bits, swapThis);
    for (int i = 0; i < access.width; ++i) {
      const int last = access.width - 1;
      at(length_ + (swapThis && swap_ ? last - i : i)) = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    length_ += access.width;
  }
  void moveCursors() {
    const int n = number(-20, 70);
    if (chance()) {
      buffer_.skipWrite(n);
      complainUnless(length_ + n <= size_, n, " out of size(", size_, "),length:", length_);
      length_ += n;
    } else if (chance()) {
      const bool accepted = 1 <= n && n <= size_;
      EXPECT_EQ(buffer_.setLength(n), accepted);
      if (accepted) length_ = n;
    } else {
      reset(chance(), chance());
    }
  }
  void reset(bool offset, bool length) {
    buffer_.reset(offset, length);
    if (offset) offset_ = 0;
    if (length) length_ = 0;
  }

  void append() {
    std::uint8_t bytes[20];
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(number(0, 255));
    const int n = number(-1, std::size(bytes));
    const int copied = std::clamp(n, 0, std::max(size_ - length_, 0));
    EXPECT_EQ(buffer_.append(bytes, n), copied);
    for (int i = 0; i < copied; ++i) at(length_++) = bytes[i];
  }

  /// A sink or source that says `answer` and counts the call; it has to be called with that
  /// position in the view and that length.
  auto answering(int answer, int position, int length) {
    return [=, this](const std::uint8_t* bytes, std::int32_t given) {
      EXPECT_EQ(bytes - block_.data(), kBase + position);
      EXPECT_EQ(given, length);
      ++calls_;
      return answer;
    };
  }
  void drain() {
    const int unread = length_ - offset_;
    const int answer = number(-2, std::max(unread, 0) + 2);
    EXPECT_EQ(buffer_.drainTo(answering(answer, offset_, unread)), unread > 0 ? answer : 0);
    EXPECT_EQ(std::exchange(calls_, 0), unread > 0);
    if (unread > 0) offset_ += std::max(answer, 0);
  }
  void fill() {
    const int room = size_ - length_;
    const int answer = number(-2, std::max(room, 0) + 2);
    EXPECT_EQ(buffer_.fillFrom(answering(answer, length_, room)), room > 0 ? answer : 0);
    EXPECT_EQ(std::exchange(calls_, 0), room > 0);
    if (room > 0) length_ += std::max(answer, 0);
  }
  void fillExpected() {
    const int expected = number(-1, 70);
    const int answer = number(-2, expected + 5);
    EXPECT_EQ(buffer_.fillFrom(answering(answer, length_, expected), expected),
              expected < 1 ? -1 : std::max(answer, -1));
    EXPECT_EQ(std::exchange(calls_, 0), expected > 0);
    if (expected < 1 || answer < 0) return;
    complainUnless(answer <= expected, "write size(", answer, ") must <= prepare size(", expected,
                   ")");
    length_ += answer;
  }

  void compare() {
    EXPECT_EQ(buffer_.offset(), offset_);
    EXPECT_EQ(buffer_.length(), length_);
    const int n = number(-70, 70);
    EXPECT_EQ(buffer_.canRead(n), offset_ + n <= length_) << n;
    EXPECT_EQ(buffer_.canWrite(n), length_ + n <= size_) << n;
    EXPECT_EQ(buffer_.hasRoom(n), length_ + std::max(n, 1) <= size_) << n;
    EXPECT_EQ(block_, wanted_);
    EXPECT_EQ(log_.take(), std::exchange(lines_, {}));
  }

  std::mt19937 random_;
  std::vector<std::uint8_t> block_ = std::vector<std::uint8_t>(2 * kBase + 64);
  SmallBuffer buffer_{block_.data(), 1, false, 0};
  scripted::CapturedLog log_;
  int calls_ = 0;

  // The model.
  std::vector<std::uint8_t> wanted_;
  const int size_ = number(1, 64);
  const bool swap_ = chance();
  int offset_ = 0;
  int length_ = number(0, size_);
  Lines lines_;
};

TEST(SmallBuffer, DoesWhatItsModelDoes) {
  Pexal::ILogger::instance()->enableConsole(false);
  const auto given = Pexal::PBase::getEnvVariable("NET_TEST_SEED");  // to repeat a run
  const auto first = given.empty() ? std::random_device{}() : std::stoul(given);
  for (std::uint32_t run = 0; run < 100 && !HasFailure(); ++run) {
    const auto seed = static_cast<std::uint32_t>(first + run);
    SCOPED_TRACE("NET_TEST_SEED=" + std::to_string(seed));
    Pair pair(seed);
    for (int step = 0; step < 200 && !HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      pair.step();
    }
  }
  Pexal::ILogger::instance()->enableConsole(true);
}

TEST(SmallBuffer, OwnsAZeroedBlockAndReportsANoneSize) {
  scripted::CapturedLog log;
  SmallBuffer buffer(8, false);
  const std::vector<std::uint8_t> dirt(8, 0xFF);
  EXPECT_EQ(buffer.append(dirt.data(), 8), 8);
  const auto* const block = buffer.data();
  buffer.own(4, true);  // the larger block is there already
  EXPECT_EQ(buffer.data(), block);
  EXPECT_EQ(buffer.length(), 0);
  EXPECT_THAT(std::vector(buffer.data(), buffer.data() + 4), Each(0));
  buffer.own(4000, true);
  EXPECT_THAT(std::vector(buffer.data(), buffer.data() + 4000), Each(0));
  EXPECT_EQ(log.take(), Lines{});

  std::uint8_t byte = 0;
  buffer.own(0, false);
  const SmallBuffer views[] = {{&byte, -3, false, 0}, {nullptr, 9, false, 0}};
  EXPECT_FALSE(views[0].hasRoom(0));
  EXPECT_EQ(log.take(), (Lines{{5, "io buffer size(0) is <= 0\n", "SmallBuffer"},
                               {5, "io buffer size(-3) is <= 0\n"},
                               {5, "io buffer size(9) is <= 0\n"}}));
}

TEST(SmallBuffer, CallsNobodyWhenNothingIsSetOrNothingIsThere) {
  scripted::CapturedLog log;
  const std::function<std::int32_t(const std::uint8_t*, std::int32_t)> emptySink;
  std::int32_t (*const nullSource)(std::uint8_t*, std::int32_t) = nullptr;
  const auto loud = [](const std::uint8_t*, std::int32_t length) {
    ADD_FAILURE() << "called";
    return length;
  };
  std::uint8_t block[4] = {};
  SmallBuffer buffer(block, 4, false, 2);
  EXPECT_EQ(buffer.drainTo(nullptr), 0);
  EXPECT_EQ(buffer.drainTo(emptySink), 0);
  EXPECT_EQ(buffer.fillFrom(nullSource), 0);
  EXPECT_EQ(buffer.fillFrom(nullptr, 1), -1);
  EXPECT_EQ(buffer.append(nullptr, 1), 0);
  EXPECT_THAT(log.take(), IsEmpty());

  for (auto* const data : {static_cast<std::uint8_t*>(nullptr), block}) {
    SmallBuffer none(data, data == nullptr ? 4 : 0, false, 2);
    EXPECT_EQ(none.drainTo(loud), 0);
    EXPECT_EQ(none.fillFrom(loud), 0);
    EXPECT_EQ(none.fillFrom(loud, 1), -1);
    EXPECT_EQ(none.append(block, 1), 0);
  }
}

TEST(SmallBuffer, CountsBeyondTheLargestNumber) {
  scripted::CapturedLog log;
  std::uint8_t block[16] = {};
  SmallBuffer buffer(block, 16, false, 8);
  EXPECT_EQ(buffer.readU8(), 0);
  EXPECT_FALSE(buffer.canRead(kMost));
  EXPECT_FALSE(buffer.canWrite(kMost));
  EXPECT_FALSE(buffer.hasRoom(kMost));
  EXPECT_EQ(buffer.append(block + 15, 1), 1);
  buffer.skipWrite(kMost);  // wraps: the cursor advances, whatever comes of it
  EXPECT_EQ(buffer.length(), std::numeric_limits<std::int32_t>::min() + 8);
  EXPECT_EQ(log.take(), (Lines{{5, "2147483647 out of size(16),length:9\n"}}));
  EXPECT_EQ(buffer.drainTo([](auto*, auto) { return 1; }), 0);
}

}  // namespace
