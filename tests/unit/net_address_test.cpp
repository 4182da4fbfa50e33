// Addresses: texts good and bad, order, what the resolver makes of names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "net/NetworkInterface.h"
#include "net/Resolve.h"
#include "net_support.h"

namespace net_test {
namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;

enum Kind { kPlain, kAny, kLoopback, kMulticast };

TEST(AddressText, IsReadAndPrinted) {
  constexpr auto k4 = Family::kIPv4;
  constexpr auto k6 = Family::kIPv6;
  const struct {
    const char* text;
    const char* printed;
    Family family;
    Kind kind;
    std::uint16_t port;
  } kRows[] = {
      {"0.0.0.0", "0.0.0.0:0", k4, kAny, 0},
      {"127.3.2.1:65535", "127.3.2.1:65535", k4, kLoopback, 65535},
      {"223.255.255.255", "223.255.255.255:0", k4, kPlain, 0},
      {"224.0.0.0", "224.0.0.0:0", k4, kMulticast, 0},
      {"240.0.0.0", "240.0.0.0:0", k4, kPlain, 0},
      {"[::]:7", "[::]:7", k6, kAny, 7},
      {"::1", "[::1]:0", k6, kLoopback, 0},
      {"2001:DB8:0:0:0:0:0:1", "[2001:db8::1]:0", k6, kPlain, 0},
      {"::ffff:192.0.2.1", "[::ffff:192.0.2.1]:0", k6, kPlain, 0},
      {"[fe80::1%17]:9", "[fe80::1%17]:9", k6, kPlain, 9},
      {"febf::1%4294967295", "[febf::1%4294967295]:0", k6, kPlain, 0},
      {"[ff02::fb%lo]:5353", "[ff02::fb%1]:5353", k6, kMulticast, 5353},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.text);
    const auto address = must(StorageAddress::parse(row.text));
    EXPECT_EQ(address.text(), row.printed);
    EXPECT_EQ(must(StorageAddress::parse(address.text())), address);
    EXPECT_EQ(address.family(), row.family);
    EXPECT_EQ(address.port(), row.port);
    EXPECT_EQ(address.isAny(), row.kind == kAny);
    EXPECT_EQ(address.isLoopback(), row.kind == kLoopback);
    EXPECT_EQ(address.isMulticast(), row.kind == kMulticast);
    sockaddr_storage raw{};
    const socklen_t size = address.store(raw);
    EXPECT_EQ(must(StorageAddress::from(raw, size)), address);
    EXPECT_EQ(codeOf(StorageAddress::from(raw, size - 1)), EINVAL);
  }
}

TEST(AddressText, ThatIsNoneIsRefused) {
  const std::string kTexts[] = {"",
                                "256.1.1.1",
                                "1.2.3.4 ",
                                "1.2.3.4:",
                                "1.2.3.4:-1",
                                "1.2.3.4:65536",
                                "1.2.3.4:99999999999999999999",
                                "1.2.3.4:80\0"s,
                                "localhost:80",
                                "[1.2.3.4]:80",
                                "::1%1",
                                "fe80::1%0",
                                "fe80::1%4294967296",
                                "[::1",
                                "[::1]80",
                                "[::1]:80:80",
                                "fe80::1%lo\0"s,
                                std::string(5000, ':')};
  for (const auto& text : kTexts) {
    const auto address = StorageAddress::parse(text);
    ASSERT_FALSE(address) << testing::PrintToString(text);
    EXPECT_THAT(address.error().code, testing::AnyOf(EINVAL, ENODEV)) << text;
    EXPECT_THAT(address.error().text(), testing::StartsWith("can't read an IPv")) << text;
  }
  EXPECT_EQ(codeOf(StorageAddress::parse("fe80::1%nosuch0")), ENODEV);
  EXPECT_EQ(codeOf(StorageAddress::parse("fe80::1%averylongnameofaninterface")), ENODEV);
}

TEST(Address, IsOrderedAndHashed) {
  const char* const kAscending[] = {"0.0.0.1:9", "127.0.0.1",   "127.0.0.1:1", "200.0.0.1",
                                    "[::]:9",    "fe80::1",     "[fe80::1]:1", "[fe80::1%1]:0",
                                    "fe80::1%2", "[fe80::2]:0", "ff02::1"};
  std::vector<StorageAddress> addresses{StorageAddress()};
  for (const auto* text : kAscending) addresses.push_back(must(StorageAddress::parse(text)));
  std::set<std::size_t> hashes;
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    hashes.insert(addresses[i].hash());
    for (std::size_t j = 0; j < addresses.size(); ++j) {
      EXPECT_EQ(addresses[i] < addresses[j], i < j) << i << " " << j;
      EXPECT_EQ(addresses[i] == addresses[j], i == j) << i << " " << j;
    }
  }
  EXPECT_EQ(hashes.size(), addresses.size());
  EXPECT_EQ(std::unordered_set<StorageAddress>(addresses.begin(), addresses.end()).size(),
            addresses.size());
  EXPECT_EQ(addresses[1].withPort(3).text(), "0.0.0.1:3");
  EXPECT_EQ(must(IPv6Address::parse("2001:db8::1")).withScope(3).scope(), 0U);

  const StorageAddress none;
  sockaddr_storage raw{};
  EXPECT_EQ(none.store(raw), 0U);
  EXPECT_EQ(none.text(), "");
  EXPECT_FALSE(none.isAny() || none.isLoopback() || none.isMulticast());
  EXPECT_EQ(none.withPort(1), none);
  EXPECT_EQ(codeOf(StorageAddress::from(raw, sizeof(raw))), EAFNOSUPPORT);
  EXPECT_EQ(codeOf(StorageAddress::from(raw, 0)), EAFNOSUPPORT);
}

using ResolveTest = KeepsDescriptors<testing::Test>;

TEST_F(ResolveTest, GivesAddressesOrAReason) {
  EXPECT_THAT(must(resolve("localhost", 80)), Contains(StorageAddress(IPv4Address::loopback(80))));
  EXPECT_THAT(must(resolve("::1", 80)), ElementsAre(StorageAddress(IPv6Address::loopback(80))));
  EXPECT_THAT(must(resolve("fe80::1%lo", 0)),
              ElementsAre(must(StorageAddress::parse("fe80::1%1"))));
  EXPECT_EQ(codeOf(resolve("::1", 80, Family::kIPv4)), ENOENT);
  EXPECT_EQ(codeOf(resolve("", 80)), EINVAL);
  EXPECT_EQ(codeOf(resolve("::1\0"s, 80)), EINVAL);
  const auto nobody = resolve("nobody.invalid", 80);  // there is no network to ask
  ASSERT_FALSE(nobody);
  EXPECT_THAT(nobody.error().text(),
              testing::MatchesRegex("can't resolve a host name: .+ \\([0-9]+\\)"));

  const auto loopback = must(NetworkInterface::byName("lo"));
  EXPECT_EQ(must(loopback.name()), "lo");
  EXPECT_EQ(codeOf(NetworkInterface::any().name()), ENODEV);
  EXPECT_EQ(codeOf(NetworkInterface::byName("")), ENODEV);
  EXPECT_EQ(NetworkInterface::byName("nosuch0").error().text(),
            "can't find a network interface by its name: No such device (19)");
}

}  // namespace
}  // namespace net_test
