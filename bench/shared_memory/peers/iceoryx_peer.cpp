// bench_iceoryx: both ends of a channel by iceoryx, as its documentation has it: untyped publisher,
// and a subscriber whose listener calls when something came. A program of its own, so that the
// benchmarks work where iceoryx isn't installed.

#include <cstring>
#include <iceoryx_posh/popo/listener.hpp>
#include <iceoryx_posh/popo/untyped_publisher.hpp>
#include <iceoryx_posh/popo/untyped_subscriber.hpp>
#include <iceoryx_posh/runtime/posh_runtime.hpp>
#include <stdexcept>
#include <string>

#include "harness/Clock.h"
#include "pbase/CThread.h"
#include "shared_memory/peers/Channel.h"

namespace {

using namespace bench;
using iox::cxx::TruncateToCapacity;

constexpr std::int64_t kMatchNs = 10'000'000'000;

/// {"channel"}.
iox::capro::ServiceDescription attach(const Json::Value& arguments, const char* part) {
  const std::string channel = arguments["channel"].asString();
  iox::runtime::PoshRuntime::initRuntime(
      iox::RuntimeName_t(TruncateToCapacity, "bench_" + channel + '_' + part));
  return {"bench", "channel", iox::capro::IdString_t(TruncateToCapacity, channel)};
}

/// {"channel", "attended": a reader is there and to be waited for}.
class IceoryxWriter final : public WriterRole {
 public:
  explicit IceoryxWriter(const Json::Value& arguments) : publisher_(attach(arguments, "writer")) {
    const std::int64_t deadline = nowNs() + kMatchNs;
    while (arguments["attended"].asBool() && !publisher_.hasSubscribers()) {
      if (nowNs() > deadline) throw std::runtime_error("iceoryx: the reader isn't found");
      Pexal::PBase::CThread::sleep(1);
    }
  }

 private:
  bool write(const Message& message) noexcept override {
    auto loan = publisher_.loan(sizeof message);
    if (loan.has_error()) return false;
    std::memcpy(loan.value(), &message, sizeof message);
    publisher_.publish(loan.value());
    return true;
  }

  iox::popo::UntypedPublisher publisher_;
};

class IceoryxReader final : public ReaderRole {
 public:
  explicit IceoryxReader(const Json::Value& arguments) : subscriber_(attach(arguments, "reader")) {
    listener_
        .attachEvent(subscriber_, iox::popo::SubscriberEvent::DATA_RECEIVED,
                     iox::popo::createNotificationCallback(onData, *this))
        .or_else([](auto) { throw std::runtime_error("iceoryx: no listener"); });
  }
  ~IceoryxReader() override {
    listener_.detachEvent(subscriber_, iox::popo::SubscriberEvent::DATA_RECEIVED);
  }

 private:
  static void onData(iox::popo::UntypedSubscriber* subscriber, IceoryxReader* self) {
    for (auto taken = subscriber->take(); !taken.has_error(); taken = subscriber->take()) {
      const auto& message = *static_cast<const Message*>(taken.value());
      self->receive(message.kind, message.sentNs);
      subscriber->release(taken.value());
    }
  }

  iox::popo::UntypedSubscriber subscriber_;
  iox::popo::Listener listener_;
};

constexpr RoleEntry kRoles[] = {{"iceoryx-writer", makeRole<IceoryxWriter>},
                                {"iceoryx-reader", makeRole<IceoryxReader>}};

}  // namespace

int main(int argc, char** argv) {
  return argc == 4 ? bench::playRole(kRoles, argv[2], argv[3]) : 2;
}
