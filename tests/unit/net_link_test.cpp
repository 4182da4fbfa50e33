// Datagrams between two network namespaces with a link (veth) between them: what a loopback
// interface can't show of multicast.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include "net_support.h"

namespace net_test {
namespace {

/// Empty when the command succeeded, else what it printed.
std::string complaintOf(const std::string& command) {
  std::string printed;
  FILE* const pipe = ::popen(("exec 2>&1; " + command).c_str(), "r");
  if (pipe == nullptr) return "can't run " + command;
  char line[256];
  while (std::fgets(line, sizeof(line), pipe) != nullptr) printed += line;
  if (::pclose(pipe) == 0) return "";
  return command + ": " + printed;
}

class NetworkNamespace {
 public:
  /// The calling thread's.
  NetworkNamespace() : descriptor_(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {}
  ~NetworkNamespace() { ::close(descriptor_); }
  NetworkNamespace(const NetworkNamespace&) = delete;
  NetworkNamespace& operator=(const NetworkNamespace&) = delete;
  [[nodiscard]] bool enter() const { return ::setns(descriptor_, CLONE_NEWNET) == 0; }
  [[nodiscard]] std::string path() const {
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(descriptor_);
  }

 private:
  int descriptor_;
};

/// "left" in this namespace, "right" in another one. Sockets stay in the namespace in which they
/// were opened, so one thread can use both ends.
class Link {
 public:
  Link() { complaint_ = make(); }
  ~Link() { static_cast<void>(here_.enter()); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;
  [[nodiscard]] const std::string& complaint() const { return complaint_; }

  /// What `open` returns, made at the far end.
  template <class Open>
  auto there(Open open) {
    EXPECT_TRUE(there_->enter());
    auto made = open();
    EXPECT_TRUE(here_.enter());
    return made;
  }

 private:
  std::string make() {
    if (::unshare(CLONE_NEWNET) != 0) return "can't make a network namespace";
    there_.emplace();
    const std::string process = std::to_string(::getpid());  // the far end's, by its main thread
    const std::string made =
        complaintOf("nsenter --net=" + here_.path() +
                    " ip link add left type veth peer name right netns " + process);
    if (!made.empty()) return made;
    const std::string far = complaintOf("ip link set lo up") + bringUp("right", "2");
    if (!far.empty()) return far;
    if (!here_.enter()) return "can't return to the first namespace";
    const std::string near = bringUp("left", "1");
    if (!near.empty()) return near;
    // Who isn't there is given up soon.
    return complaintOf(
        "for t in arp_cache ndisc_cache; do"
        " ip ntable change name $t dev left retrans 300 mcast_probes 1 || exit; done");
  }
  static std::string bringUp(const std::string& name, const std::string& number) {
    return complaintOf("ip link set " + name + " addrgenmode none && ip link set " + name +
                       " up && ip address add 10.77.0." + number + "/24 dev " + name +
                       " && ip address add fe80::" + number + "/64 dev " + name + " nodad");
  }

  const NetworkNamespace here_;
  std::optional<NetworkNamespace> there_;
  std::string complaint_;
};

class DatagramsOverALink : public KeepsDescriptors<testing::TestWithParam<Family>> {
 protected:
  static void SetUpTestSuite() { link_.emplace(); }
  static void TearDownTestSuite() { link_.reset(); }
  void SetUp() override {
    if (!link_->complaint().empty()) GTEST_SKIP() << "no link here: " << link_->complaint();
    KeepsDescriptors::SetUp();
  }
  void TearDown() override {
    if (!IsSkipped()) KeepsDescriptors::TearDown();
  }

  [[nodiscard]] Family family() const { return GetParam(); }
  /// `number`: 1 this end, 2 the other, others nobody.
  [[nodiscard]] StorageAddress station(int number, std::uint16_t port) const {
    const auto left = must(NetworkInterface::byName("left")).index();
    if (family() == Family::kIPv4) {
      return IPv4Address(0x0A4D0000U + static_cast<unsigned>(number), port);
    }
    auto bytes = IPv6Address::loopback(0).address();
    bytes[0] = 0xFE;
    bytes[1] = 0x80;
    bytes[15] = static_cast<std::uint8_t>(number);
    return IPv6Address(bytes, port, left);
  }
  [[nodiscard]] StorageAddress group() const {
    return must(
        StorageAddress::parse(family() == Family::kIPv4 ? "239.255.7.7:7007" : "[ff02::7:7]:7007"));
  }
  [[nodiscard]] DatagramSocket member(const std::string& interface) const {
    const auto where = must(NetworkInterface::byName(interface));
    auto socket = must(DatagramSocket::open(family()));
    must(socket.setReuseAddress(true));
    must(socket.bind(group().withScope(where.index())));
    must(socket.joinGroup(group(), where));
    return socket;
  }
  [[nodiscard]] DatagramSocket sender() const {
    auto socket = bound(StorageAddress::any(family(), 0));
    must(socket.setMulticastInterface(must(NetworkInterface::byName("left"))));
    return socket;
  }

  static inline std::optional<Link> link_;
};
INSTANTIATE_TEST_SUITE_P(Both, DatagramsOverALink, testing::Values(Family::kIPv4, Family::kIPv6),
                         [](const auto& tested) { return nameOf(tested.param); });

TEST_P(DatagramsOverALink, CarryTheBuffersRecordsToAGroupAndBack) {
  auto here = sender();
  auto there = link_->there([&] { return member("right"); });
  const auto from = passRecord(here, group(), there);
  EXPECT_EQ(from.hostText().substr(0, from.hostText().find('%')),
            station(1, 0).hostText().substr(0, station(1, 0).hostText().find('%')));
  EXPECT_EQ(from.port(), portOf(here));
  const auto back = passRecord(there, from, here);
  EXPECT_EQ(back, station(2, group().port()));
}

TEST_P(DatagramsOverALink, ReachWhomLoopHopsAndInterfaceLetThem) {
  auto here = sender();
  auto near = member("left");
  auto aside = member("lo");
  auto far = link_->there([&] { return member("right"); });
  const struct {
    const char* text;
    bool loop;
    int hops;
  } kRows[] = {{"both", true, 1},
               {"far", false, 1},
               {"near", true, 0},
               {"nobody", false, 0},
               {"end", true, 1}};
  for (const auto& row : kRows) {
    // Kernels differ in whether IPv6 leaves the machine then.
    if (family() == Family::kIPv6 && !row.loop && row.hops == 0) continue;
    must(here.setMulticastLoop(row.loop));
    must(here.setMulticastHops(row.hops));
    say(here, row.text, group());
  }
  EXPECT_EQ(hearUntilEnd(near), "both near ");
  EXPECT_EQ(hearUntilEnd(far), "both far ");
  char byte = 0;
  EXPECT_EQ(codeOf(aside.receive(&byte, 1, 0)), ETIMEDOUT);
}

TEST_P(DatagramsOverALink, WaitForRoomNoLongerThanTheyMay) {
  auto here = sender();
  must(here.setSendBufferSize(1));       // the smallest
  const auto nobody = station(9, 7007);  // so all of it waits for an answer to "who is 9?"
  const std::string large(1000, 'x');
  int code = 0;
  for (int sent = 0; code == 0 && sent < 1000; ++sent) {
    code = codeOf(here.sendTo(large.data(), large.size(), nobody));
  }
  ASSERT_EQ(code, ETIMEDOUT);
  // Room comes when the system gives the others up; that is what the longer time-out waits for.
  EXPECT_NE(codeOf(here.sendTo(large.data(), large.size(), nobody, kPatienceMs)), ETIMEDOUT);
}

}  // namespace
}  // namespace net_test
