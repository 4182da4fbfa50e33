#include "doctor/Spdp.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstring>

#include "core/Text.h"

namespace robotctl::doctor {
namespace {

constexpr std::size_t kHeader = 20;
constexpr std::uint8_t kData = 0x15;
constexpr std::uint8_t kLittleEndian = 0x01;
constexpr std::uint8_t kInlineQos = 0x02;
constexpr std::uint8_t kDataPresent = 0x04;
constexpr std::array<std::uint8_t, 4> kAnnouncer{0x00, 0x01, 0x00, 0xc2};
constexpr std::array<std::uint8_t, 4> kDetector{0x00, 0x01, 0x00, 0xc7};
constexpr std::array<std::uint8_t, 4> kParticipantEntity{0x00, 0x00, 0x01, 0xc1};
constexpr std::uint32_t kAnnouncesAndDetects = 0x3;
constexpr std::uint32_t kUdp4 = 1;
constexpr std::uint32_t kMostProperties = 64;

enum Parameter : std::uint16_t {
  kSentinel = 0x01,
  kLease = 0x02,
  kDomainId = 0x0f,
  kProtocolVersion = 0x15,
  kVendor = 0x16,
  kUserData = 0x2c,
  kDefaultUnicast = 0x31,
  kMetatrafficUnicast = 0x32,
  kParticipantGuid = 0x50,
  kBuiltinEndpoints = 0x58,
  kPropertyList = 0x59,
  kEntityName = 0x62,
};

class Writer {
 public:
  void bytes(const void* data, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(data);
    out_.insert(out_.end(), first, first + size);
  }
  void u8(std::uint8_t value) { out_.push_back(value); }
  void u16(std::uint16_t value) {
    for (int shift = 0; shift < 16; shift += 8) u8(static_cast<std::uint8_t>(value >> shift));
  }
  void u32(std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) u8(static_cast<std::uint8_t>(value >> shift));
  }
  void parameter(Parameter id, std::uint16_t size) {
    u16(id);
    u16(size);
  }
  void locator(Parameter id, std::uint32_t address, std::uint16_t port) {
    constexpr std::uint8_t kZeros[12] = {};
    parameter(id, 24);
    u32(kUdp4);
    u32(port);
    bytes(kZeros, sizeof kZeros);
    bytes(&address, sizeof address);
  }
  [[nodiscard]] std::vector<std::uint8_t>& out() { return out_; }

 private:
  std::vector<std::uint8_t> out_;
};

/// Reads within its bounds; everything beyond them is zero and makes it bad.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size, bool littleEndian)
      : data_(data), size_(size), littleEndian_(littleEndian) {}

  [[nodiscard]] bool good() const { return good_; }
  [[nodiscard]] std::size_t left() const { return size_ - at_; }
  [[nodiscard]] const std::uint8_t* here() const { return data_ + at_; }

  const std::uint8_t* skip(std::size_t count) {
    if (count > left()) {
      good_ = false;
      return nullptr;
    }
    const std::uint8_t* const begin = here();
    at_ += count;
    return begin;
  }
  std::uint32_t number(int bytes) {
    const std::uint8_t* const first = skip(static_cast<std::size_t>(bytes));
    std::uint32_t value = 0;
    for (int i = 0; first != nullptr && i < bytes; ++i) {
      value |= std::uint32_t{first[i]} << 8 * (littleEndian_ ? i : bytes - 1 - i);
    }
    return value;
  }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return number(4); }
  /// A length, then that many bytes, then up to the next multiple of four.
  std::string octets() {
    const std::uint32_t size = u32();
    const std::uint8_t* const first = skip(size);
    if (first == nullptr) return {};
    std::string text(reinterpret_cast<const char*>(first), size);
    if (left() > 0) skip(std::min<std::size_t>((4 - size % 4) % 4, left()));
    return text;
  }
  /// The same with a NUL at its end.
  std::string text() {
    std::string result = octets();
    if (const std::size_t end = result.find('\0'); end != std::string::npos) result.resize(end);
    return result;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  bool littleEndian_;
  std::size_t at_ = 0;
  bool good_ = true;
};

void readLocator(Reader value, Participant& out) {
  const bool udp4 = value.u32() == kUdp4;
  value.skip(4 + 12);
  const std::uint8_t* const address = value.skip(4);
  if (udp4 && address != nullptr && out.address == 0) std::memcpy(&out.address, address, 4);
}

void readProperties(Reader value, Participant& out) {
  const std::uint32_t count = std::min(value.u32(), kMostProperties);
  for (std::uint32_t i = 0; i < count && value.good(); ++i) {
    std::string key = value.text();
    std::string text = value.text();
    if (value.good()) out.properties.emplace(std::move(key), std::move(text));
  }
}

bool readParameter(std::uint16_t id, Reader value, Participant& out) {
  switch (id & 0x3fffU) {
    case kParticipantGuid: {
      const std::uint8_t* const prefix = value.skip(out.prefix.size());
      if (prefix != nullptr) std::memcpy(out.prefix.data(), prefix, out.prefix.size());
      return prefix != nullptr;
    }
    case kMetatrafficUnicast:
    case kDefaultUnicast:
      readLocator(value, out);
      return false;
    case kUserData:
      out.userData = value.octets();
      return false;
    case kEntityName:
      out.name = value.text();
      return false;
    case kPropertyList:
      readProperties(value, out);
      return false;
    default:
      return false;
  }
}

/// Behind the parameters; nothing when they don't end within the bounds.
bool skipParameters(Reader& reader) {
  while (reader.good()) {
    const std::uint16_t id = reader.u16();
    const std::uint16_t size = reader.u16();
    if (id == kSentinel) return reader.good();
    reader.skip(size);
  }
  return false;
}

std::optional<Participant> readPayload(Reader header) {
  const std::uint8_t* const encoding = header.skip(4);
  if (encoding == nullptr || encoding[0] != 0 || (encoding[1] != 2 && encoding[1] != 3)) return {};
  const bool littleEndian = encoding[1] == 3;
  Reader reader(header.here(), header.left(), littleEndian);
  Participant out;
  bool identified = false;
  while (reader.good() && reader.left() >= 4) {
    const std::uint16_t id = reader.u16();
    const std::uint16_t size = reader.u16();
    if (id == kSentinel) break;
    const std::uint8_t* const value = reader.skip(size);
    if (value == nullptr) return {};
    identified |= readParameter(id, Reader(value, size, littleEndian), out);
  }
  return identified ? std::optional(std::move(out)) : std::nullopt;
}

std::optional<Participant> readData(std::uint8_t flags, Reader reader) {
  reader.skip(2);  // further flags
  const std::uint16_t toQos = reader.u16();
  const std::uint8_t* const ids = reader.skip(8);
  if (ids == nullptr || std::memcmp(ids + 4, kAnnouncer.data(), kAnnouncer.size()) != 0) return {};
  if (toQos < 8) return {};
  reader.skip(toQos - 8U);  // the sequence number, and what later versions put behind it
  if ((flags & kInlineQos) != 0 && !skipParameters(reader)) return {};
  if (!reader.good() || (flags & kDataPresent) == 0) return {};  // it takes its leave
  return readPayload(reader);
}

}  // namespace

std::string Participant::property(const std::string& key) const {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string() : printable(found->second);
}

std::string Participant::describe() const {
  std::string program = property("__ProcessName");
  if (program.empty()) program = name.empty() ? "a participant" : printable(name);
  std::string details;
  const auto add = [&](const std::string& text) {
    if (!text.empty()) details += (details.empty() ? "" : ", ") + text;
  };
  const std::string process = property("__Pid");
  const std::string host = property("__Hostname");
  if (!process.empty()) add("process " + process + (host.empty() ? "" : " on " + host));
  if (address != 0) {
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    add(text);
  }
  if (!userData.empty()) add("\"" + printable(shortened(userData, 64)) + '"');
  return details.empty() ? program : program + " (" + details + ')';
}

bool Participant::isOwn() const {
  char host[256] = "";
  if (::gethostname(host, sizeof host - 1) != 0) return false;
  return property("__Pid") == std::to_string(::getpid()) &&
         property("__Hostname") == printable(host);
}

std::vector<std::uint8_t> probe(const GuidPrefix& prefix, std::uint32_t domain,
                                std::uint32_t address, std::uint16_t port,
                                std::uint32_t leaseSeconds) {
  Writer body;
  body.u16(0);   // further flags
  body.u16(16);  // to the parameters: two ids, the sequence number
  body.bytes(kDetector.data(), kDetector.size());
  body.bytes(kAnnouncer.data(), kAnnouncer.size());
  body.u32(0);
  body.u32(1);
  body.bytes("\x00\x03\x00\x00", 4);  // a parameter list, little endian
  body.parameter(kProtocolVersion, 4);
  body.bytes("\x02\x01\x00\x00", 4);
  body.parameter(kVendor, 4);
  body.u32(0);
  body.parameter(kParticipantGuid, 16);
  body.bytes(prefix.data(), prefix.size());
  body.bytes(kParticipantEntity.data(), kParticipantEntity.size());
  body.parameter(kDomainId, 4);
  body.u32(domain);
  body.parameter(kBuiltinEndpoints, 4);
  body.u32(kAnnouncesAndDetects);
  body.parameter(kLease, 8);
  body.u32(leaseSeconds);
  body.u32(0);
  body.locator(kMetatrafficUnicast, address, port);
  body.locator(kDefaultUnicast, address, port);
  body.parameter(kSentinel, 0);

  Writer message;
  message.bytes("RTPS\x02\x01\x00\x00", 8);
  message.bytes(prefix.data(), prefix.size());
  message.u8(kData);
  message.u8(kLittleEndian | kDataPresent);
  message.u16(static_cast<std::uint16_t>(body.out().size()));
  message.bytes(body.out().data(), body.out().size());
  return std::move(message.out());
}

std::optional<Participant> readAnnouncement(const std::uint8_t* data, std::size_t size) {
  if (size < kHeader || std::memcmp(data, "RTPS", 4) != 0) return {};
  std::size_t at = kHeader;
  while (size - at >= 4) {
    const std::uint8_t kind = data[at];
    const std::uint8_t flags = data[at + 1];
    const bool littleEndian = (flags & kLittleEndian) != 0;
    std::size_t length = Reader(data + at + 2, 2, littleEndian).u16();
    at += 4;
    if (length == 0 && kind == kData) length = size - at;  // the last one may say so
    if (length > size - at) return {};
    if (kind == kData) {
      if (auto found = readData(flags, Reader(data + at, length, littleEndian))) return found;
    }
    at += length;
  }
  return {};
}

}  // namespace robotctl::doctor
