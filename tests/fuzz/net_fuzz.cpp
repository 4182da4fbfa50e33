// Texts of addresses, and the byte buffer. A text is refused with a reason, or it reads back from
// what it prints as. A reader of a datagram that makes the buffer's tests first stays within the
// datagram, and a writer within its space, whatever the input makes them do.

#include <algorithm>

#include "FuzzSupport.h"
#include "net/SmallBuffer.h"
#include "net/StorageAddress.h"

namespace {

using orvane::RobotSdk::SmallBuffer;

void checkAddress(std::string_view text) {
  const auto address = NFramework::StorageAddress::parse(text);
  if (!address) {
    fuzz::require(address.error().code != 0, "a refusal has a code");
    fuzz::require(!address.error().text().empty(), "and a text");
    return;
  }
  const std::string printed = address->text();
  const auto again = NFramework::StorageAddress::parse(printed);
  fuzz::require(again && *again == *address, "what was printed reads back", printed);
  fuzz::require(again->text() == printed, "it prints the same again", printed);
}

/// Each byte of the datagram is the next operation, and data as well.
void checkBuffer(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> datagram(data, data + size);  // exactly so large, to see what leaves it
  SmallBuffer in(datagram.data(), static_cast<std::int32_t>(size), true,
                 static_cast<std::int32_t>(size));
  SmallBuffer out(static_cast<std::int32_t>(std::max<std::size_t>(size / 2, 1)), true);
  while (in.canRead(9)) {
    const std::uint8_t operation = in.readU8();
    const bool swapThis = operation >= 0x80;
    switch (operation % 8) {
      case 0:
        if (out.canWrite(2)) out.writeU16(in.readU16(swapThis), swapThis);
        break;
      case 1:
        if (out.canWrite(4)) out.writeU32(in.readU32(swapThis), swapThis);
        break;
      case 2:
        if (out.canWrite(8)) out.writeU64(in.readU64(swapThis), swapThis);
        break;
      case 3:
        if (out.canWrite(4)) out.writeFloat(in.readFloat(swapThis), swapThis);
        break;
      case 4: {
        const auto n = static_cast<std::int32_t>(in.readU32(swapThis));
        if (n >= 0 && out.canWrite(n)) out.skipWrite(n);
        break;
      }
      case 5:
        static_cast<void>(out.setLength(static_cast<std::int32_t>(in.readU32(swapThis))));
        break;
      case 6:
        in.drainTo([&](const std::uint8_t* bytes, std::int32_t length) {
          return out.append(bytes, std::min<std::int32_t>(length, operation));
        });
        break;
      default:
        out.reset(true, true);
    }
    fuzz::require(0 <= in.offset() && in.offset() <= in.length() && in.length() <= in.size(),
                  "the reader's cursors keep their order");
    fuzz::require(0 <= out.length() && out.length() <= out.size(), "the writer's cursor stays");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkAddress(fuzz::textOf(data, size));
  checkBuffer(data, size);
  return 0;
}
