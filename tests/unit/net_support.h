#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "net/DatagramSocket.h"
#include "net/SmallBuffer.h"

namespace net_test {

using namespace NFramework;

constexpr std::uint32_t kPatienceMs = 20'000;  ///< for what has to come

inline int codeOf(const auto& result) {
  return result ? 0 : result.error().code;
}

/// The value of an operation that has to succeed.
template <class Value>
Value must(Result<Value> result) {
  if (!result) throw std::runtime_error(result.error().text());
  if constexpr (!std::is_void_v<Value>) return *std::move(result);
}

inline DatagramSocket bound(const StorageAddress& address) {
  auto socket = must(DatagramSocket::open(address.family()));
  must(socket.bind(address));
  return socket;
}

inline DatagramSocket listener(Family family) {
  return bound(StorageAddress::loopback(family, 0));
}

inline std::uint16_t portOf(const DatagramSocket& socket) {
  return must(socket.localAddress()).port();
}

inline void say(DatagramSocket& socket, const std::string& text, const StorageAddress& to) {
  must(socket.sendTo(text.data(), text.size(), to));
}

/// The next datagram, as a text.
inline std::string hear(DatagramSocket& socket) {
  char text[64];
  const auto size = must(socket.receive(text, sizeof(text), kPatienceMs));
  return {text, size};
}

/// Everything up to the datagram that says "end".
inline std::string hearUntilEnd(DatagramSocket& socket) {
  std::string all;
  for (std::string text = hear(socket); text != "end"; text = hear(socket)) all += text + " ";
  return all;
}

/// Sends what is unread in one datagram, and takes one datagram into what is free.
inline auto sinkTo(DatagramSocket& socket, const StorageAddress& to) {
  return [&socket, &to](const std::uint8_t* bytes, std::int32_t length) -> std::int32_t {
    return socket.sendTo(bytes, static_cast<std::size_t>(length), to) ? length : -1;
  };
}
inline auto sourceOf(DatagramSocket& socket, StorageAddress& from) {
  return [&socket, &from](std::uint8_t* bytes, std::int32_t length) -> std::int32_t {
    const auto received = socket.receiveFrom(bytes, static_cast<std::size_t>(length), kPatienceMs);
    if (!received) return -1;
    from = received->from;
    return static_cast<std::int32_t>(received->size);
  };
}

/// A record goes from one buffer through the sockets into another, which is told from whom.
inline StorageAddress passRecord(DatagramSocket& sender, const StorageAddress& to,
                                 DatagramSocket& receiver) {
  orvane::RobotSdk::SmallBuffer out(32, true);
  out.writeU16(0x1234, true);
  out.writeFloat(0.5F, true);
  out.writeU64(7, false);
  EXPECT_EQ(out.drainTo(sinkTo(sender, to)), 14);
  EXPECT_FALSE(out.canRead(1));

  StorageAddress from;
  orvane::RobotSdk::SmallBuffer in(32, true);
  EXPECT_EQ(in.fillFrom(sourceOf(receiver, from)), 14);
  EXPECT_EQ(in.data()[0], 0x12);  // reversed on this side, so in the order of the network
  EXPECT_EQ(in.readU16(true), 0x1234);
  EXPECT_EQ(in.readFloat(true), 0.5F);
  EXPECT_EQ(in.readU64(false), 7U);
  EXPECT_FALSE(in.canRead(1));
  return from;
}

inline std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// No test leaves a descriptor open, however its operations ended.
template <class Base>
class KeepsDescriptors : public Base {
 protected:
  void SetUp() override { before_ = openDescriptors(); }
  void TearDown() override { EXPECT_EQ(openDescriptors(), before_); }

 private:
  std::ptrdiff_t before_ = 0;
};

inline std::string nameOf(Family family) {
  return family == Family::kIPv4 ? "IPv4" : "IPv6";
}

}  // namespace net_test
