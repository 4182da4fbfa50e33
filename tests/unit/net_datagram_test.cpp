// Datagram sockets of both families on the loopback interface.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <utility>

#include "WaitUntil.h"
#include "net_support.h"
#include "pbase/CTime.h"

namespace net_test {
namespace {

using orvane_test::waitUntil;
using Pexal::PBase::CTime;

const NetworkInterface kLoopback(1);
const NetworkInterface kMissing(9999);

class Datagrams : public KeepsDescriptors<testing::TestWithParam<Family>> {
 protected:
  [[nodiscard]] Family family() const { return GetParam(); }
  [[nodiscard]] Family other() const {
    return family() == Family::kIPv4 ? Family::kIPv6 : Family::kIPv4;
  }
  [[nodiscard]] StorageAddress loopback(std::uint16_t port) const {
    return StorageAddress::loopback(family(), port);
  }
  [[nodiscard]] StorageAddress group(std::uint16_t port) const {
    const char* const text = family() == Family::kIPv4 ? "239.255.7.7" : "ff02::7:7";
    return must(StorageAddress::parse(text)).withPort(port);
  }
};
INSTANTIATE_TEST_SUITE_P(Both, Datagrams, testing::Values(Family::kIPv4, Family::kIPv6),
                         [](const auto& tested) { return nameOf(tested.param); });

TEST_P(Datagrams, CarryTheBuffersRecordsThereAndBack) {
  auto here = listener(family());
  auto there = listener(family());
  const auto from = passRecord(here, must(there.localAddress()), there);
  EXPECT_EQ(from, must(here.localAddress()));
  passRecord(there, from, here);

  say(here, "", must(there.localAddress()));
  EXPECT_EQ(hear(there), "");  // an empty datagram is one
}

TEST_P(Datagrams, OfAConnectedSocketAreItsPeersOnly) {
  auto client = listener(family());
  auto server = listener(family());
  auto stranger = listener(family());
  EXPECT_EQ(codeOf(client.send("x", 1)), EDESTADDRREQ);
  EXPECT_EQ(codeOf(client.remoteAddress()), ENOTCONN);
  must(client.connect(must(server.localAddress())));
  EXPECT_EQ(must(client.remoteAddress()), must(server.localAddress()));
  must(client.send("question", 8));
  EXPECT_EQ(hear(server), "question");
  say(stranger, "noise", must(client.localAddress()));
  say(server, "answer", must(client.localAddress()));
  EXPECT_EQ(hear(client), "answer");

  server.close();
  must(client.send("anybody?", 8));
  char byte = 0;
  EXPECT_EQ(codeOf(client.receive(&byte, 1, kPatienceMs)), ECONNREFUSED);
  EXPECT_EQ(codeOf(client.receive(&byte, 1, 0)), ETIMEDOUT);
}

TEST_P(Datagrams, ThatAreTooLargeAreNeverTakenForWholeOnes) {
  auto here = listener(family());
  const auto self = must(here.localAddress());
  say(here, "12345", self);
  say(here, "1234", self);
  char space[] = "....~";
  EXPECT_EQ(codeOf(here.receive(space, 4, kPatienceMs)), EMSGSIZE);
  EXPECT_STREQ(space, "1234~");
  EXPECT_EQ(must(here.receive(space, 4, kPatienceMs)), 4U);

  std::string large(family() == Family::kIPv4 ? 65507 : 65527, 'x');
  say(here, large, self);
  std::string taken(large.size(), '.');
  EXPECT_EQ(must(here.receive(taken.data(), taken.size(), kPatienceMs)), large.size());
  EXPECT_EQ(taken, large);
  large += 'x';
  EXPECT_EQ(codeOf(here.sendTo(large.data(), large.size(), self)), EMSGSIZE);
}

TEST_P(Datagrams, ThatDontComeEndTheWaitAtItsTimeOut) {
  auto here = listener(family());
  char byte = 0;
  EXPECT_EQ(codeOf(here.receive(&byte, 1, 0)), ETIMEDOUT);
  const auto before = CTime::getCurrentMicroSecond();
  EXPECT_EQ(here.receive(&byte, 1, 30).error().text(),
            "can't receive a datagram: Connection timed out (110)");
  EXPECT_GE(CTime::getCurrentMicroSecond() - before, 30'000U);
}

std::atomic<int> signalsSeen{0};

struct Waited {
  int code = 0;
  std::uint64_t ms = 0;
};

/// What receive says on a thread whose every system call is interrupted again and again. `step` is
/// called after each signal.
template <class Step>
Waited receiveInterrupted(DatagramSocket& socket, std::uint32_t timeoutMs, Step step) {
  struct sigaction action {};
  action.sa_handler = [](int) { ++signalsSeen; };  // without SA_RESTART
  struct sigaction previous {};
  must(::sigaction(SIGUSR1, &action, &previous) == 0 ? Result<>() : systemError("set a handler"));
  Waited waited;
  std::atomic<bool> done{false};
  std::thread thread([&] {
    char bytes[8];
    const auto start = CTime::getCurrentMilliSecond();
    waited.code = codeOf(socket.receive(bytes, sizeof(bytes), timeoutMs));
    waited.ms = CTime::getCurrentMilliSecond() - start;
    done = true;
  });
  EXPECT_TRUE(waitUntil([&] {
    if (done) return true;
    ::pthread_kill(thread.native_handle(), SIGUSR1);
    step();
    return done.load();
  }));
  thread.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
  return waited;
}

TEST_P(Datagrams, AreWaitedForWhateverSignalsCome) {
  auto here = listener(family());
  const auto self = must(here.localAddress());
  const int enough = signalsSeen + 5;
  bool said = false;
  const auto sayOnce = [&] {
    if (said || signalsSeen < enough) return;
    say(here, "now", self);
    said = true;
  };
  EXPECT_EQ(receiveInterrupted(here, kPatienceMs, sayOnce).code, 0);
  EXPECT_TRUE(said);

  const auto waited = receiveInterrupted(here, 100, [] {});
  EXPECT_EQ(waited.code, ETIMEDOUT);
  EXPECT_GE(waited.ms, 100U);
}

TEST_P(Datagrams, OptionsHaveRanges) {
  auto here = listener(family());
  for (const int hops : {1, 255}) {
    must(here.setMulticastHops(hops));
    must(here.setHops(hops));
    EXPECT_EQ(must(here.multicastHops()), hops);
    EXPECT_EQ(must(here.hops()), hops);
  }
  must(here.setMulticastHops(0));
  for (const int hops : {-1, 256}) {
    EXPECT_EQ(codeOf(here.setMulticastHops(hops)), EINVAL);
    EXPECT_EQ(codeOf(here.setHops(hops)), EINVAL);
  }
  EXPECT_EQ(codeOf(here.setHops(0)), EINVAL);
  EXPECT_LT(must(here.setReceiveBufferSize(2'000'000'000)), 2'000'000'000);
  EXPECT_EQ(codeOf(here.setSendBufferSize(0)), EINVAL);
}

TEST_P(Datagrams, RefuseAddressesAndInterfacesThatDontFit) {
  auto here = listener(family());
  const auto foreign = StorageAddress::loopback(other(), 1);
  for (const auto& address : {foreign, StorageAddress()}) {
    EXPECT_EQ(codeOf(here.bind(address)), EAFNOSUPPORT);
    EXPECT_EQ(codeOf(here.connect(address)), EAFNOSUPPORT);
    EXPECT_EQ(codeOf(here.sendTo("x", 1, address)), EAFNOSUPPORT);
    EXPECT_EQ(codeOf(here.joinGroup(address, kLoopback)), EAFNOSUPPORT);
  }
  EXPECT_EQ(codeOf(here.joinGroup(loopback(1), kLoopback)), EINVAL);
  EXPECT_EQ(codeOf(here.joinGroup(group(1), kMissing)), ENODEV);
  EXPECT_EQ(codeOf(here.setMulticastInterface(kMissing)), ENODEV);
  EXPECT_EQ(codeOf(here.leaveGroup(group(1), kLoopback)), EADDRNOTAVAIL);
  must(here.joinGroup(group(1), kLoopback));
  EXPECT_EQ(here.joinGroup(group(1), kLoopback).error().text(),
            "can't join a multicast group: Address already in use (98)");
  must(here.leaveGroup(group(1), kLoopback));
  must(here.setMulticastInterface(kLoopback));
  must(here.setMulticastInterface(NetworkInterface::any()));
  EXPECT_EQ(codeOf(DatagramSocket::open(Family::kNone)), EAFNOSUPPORT);
}

TEST_P(Datagrams, ShareAnAddressOnlyWhenAskedTo) {
  using Share = Result<> (SocketBase::*)(bool);
  for (const Share share : {&SocketBase::setReuseAddress, &SocketBase::setReusePort}) {
    const auto sharing = [&](std::uint16_t port, bool on) {
      auto socket = must(DatagramSocket::open(family()));
      must((socket.*share)(on));
      const int code = codeOf(socket.bind(loopback(port)));
      return std::pair(code, std::move(socket));
    };
    const auto first = sharing(0, true);
    const auto port = portOf(first.second);
    EXPECT_EQ(sharing(port, true).first, 0);
    EXPECT_EQ(sharing(port, false).first, EADDRINUSE);
  }
  // Both families on one port: neither takes the other's.
  const auto here = bound(StorageAddress::any(family(), 0));
  const auto beside = bound(StorageAddress::any(other(), portOf(here)));
  EXPECT_EQ(portOf(beside), portOf(here));
}

TEST_P(Datagrams, BelongToOneSocketThatIsClosedOnce) {
  auto first = listener(family());
  const int descriptor = first.descriptor();
  auto second = std::move(first);
  EXPECT_EQ(second.descriptor(), descriptor);
  EXPECT_FALSE(first.isOpen());  // NOLINT(bugprone-use-after-move): what is left is a closed socket
  first.close();
  EXPECT_NE(portOf(second), 0);
  second = listener(family());  // its own is closed now
  auto& same = second;
  second = std::move(same);
  EXPECT_TRUE(second.isOpen());
  EXPECT_EQ(second.family(), family());
  second.close();
  const auto third = listener(family());  // gets the number again, and keeps it
  second.close();
  EXPECT_NE(portOf(third), 0);

  char byte = 0;
  EXPECT_EQ(codeOf(second.bind(loopback(0))), EBADF);
  EXPECT_EQ(codeOf(second.send("x", 1)), EBADF);
  EXPECT_EQ(codeOf(second.sendTo("x", 1, loopback(1))), EBADF);
  EXPECT_EQ(codeOf(second.receive(&byte, 1, kPatienceMs)), EBADF);
  EXPECT_EQ(codeOf(second.setMulticastLoop(true)), EBADF);
  EXPECT_EQ(codeOf(second.multicastHops()), EBADF);
  EXPECT_EQ(codeOf(second.setNonBlocking(true)), EBADF);
  EXPECT_EQ(codeOf(second.localAddress()), EBADF);
}

using IPv4Datagrams = KeepsDescriptors<testing::Test>;

TEST_F(IPv4Datagrams, GoToAllOnlyWhereThatIsAllowed) {
  auto here = bound(IPv4Address::any(0));
  const auto everybody = must(StorageAddress::parse("127.255.255.255")).withPort(portOf(here));
  EXPECT_EQ(codeOf(here.sendTo("x", 1, everybody)), EACCES);
  must(here.setBroadcast(true));
  say(here, "x", everybody);
  EXPECT_EQ(hear(here), "x");
}

TEST_F(IPv4Datagrams, OfAGroupReachWhoJoinedItAndNobodyElse) {
  auto member = must(DatagramSocket::open(Family::kIPv4));
  must(member.setReuseAddress(true));
  must(member.bind(IPv4Address::any(0)));
  const StorageAddress group = must(IPv4Address::parse("239.255.7.7")).withPort(portOf(member));
  auto neighbour = must(DatagramSocket::open(Family::kIPv4));
  must(neighbour.setReuseAddress(true));
  must(neighbour.bind(IPv4Address::any(portOf(member))));
  must(member.joinGroup(group, kLoopback));

  auto sender = listener(Family::kIPv4);
  must(sender.setMulticastInterface(kLoopback));
  say(sender, "joined", group);
  must(member.leaveGroup(group, kLoopback));
  say(sender, "left", group);
  must(member.joinGroup(group, kLoopback));
  say(sender, "end", group);
  EXPECT_EQ(hearUntilEnd(member), "joined ");
  char byte = 0;
  EXPECT_EQ(codeOf(neighbour.receive(&byte, 1, 0)), ETIMEDOUT);
}

}  // namespace
}  // namespace net_test
