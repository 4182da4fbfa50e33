// All message types in both encodings, to and from a process that is built from the same IDL and
// plain libddsc, with a look at the bytes that it receives.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dds/dds.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "WaitUntil.h"
#include "msg/TypeSupport.h"
#include "msg_samples.h"

namespace {

using namespace orvane::msg::dds_;
using dds::core::policy::DataRepresentation;
using dds::core::policy::DataRepresentationId;
using orvane::msg::typeSupport;
using orvane_test::waitUntil;
using Bytes = std::vector<std::byte>;

/// The other process. It ends when its standard input is closed, or after a minute.
class PlainPeer {
 public:
  PlainPeer() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("socketpair");
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[0], STDIN_FILENO);
      dup2(ends[0], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      execl(PLAIN_PEER, PLAIN_PEER, static_cast<char*>(nullptr));
      _exit(127);
    }
    close(ends[0]);
    pipe_ = fdopen(ends[1], "r");
  }
  ~PlainPeer() {
    if (process_ > 0) end();
  }
  PlainPeer(const PlainPeer&) = delete;
  PlainPeer& operator=(const PlainPeer&) = delete;

  /// The next sample that it received, as it came off the wire; empty when the process has ended.
  Bytes received() {
    char line[4096];
    Bytes bytes;
    if (std::fgets(line, sizeof line, pipe_) == nullptr) return bytes;
    for (const std::string digits(line); bytes.size() < digits.size() / 2;) {
      bytes.push_back(std::byte(std::stoul(digits.substr(2 * bytes.size(), 2), nullptr, 16)));
    }
    return bytes;
  }
  /// Closes its input and gives its wait status.
  int end() {
    std::fclose(pipe_);
    int status = -1;
    const bool ended = waitUntil([&] { return waitpid(process_, &status, WNOHANG) == process_; });
    if (!ended) {
      kill(process_, SIGKILL);
      waitpid(process_, &status, 0);
    }
    process_ = -1;
    return status;
  }

 private:
  pid_t process_ = -1;
  std::FILE* pipe_ = nullptr;
};

template <class T>
Bytes encode(const T& sample, std::int16_t representation) {
  const auto& type = *typeSupport<T>(representation);
  Bytes bytes(type.maxSize());
  EXPECT_EQ(type.serialize(&sample, bytes), bytes.size());
  return bytes;
}

/// A T with every member set and its padding zero: libddsc may send the padding of memory as it is.
template <class T>
T cleanSample() {
  const Bytes bytes = encode(samples::patterned<T>(), 0);
  T sample;
  std::memset(&sample, 0, sizeof sample);
  EXPECT_TRUE(typeSupport<T>(0)->deserialize(bytes, &sample));
  return sample;
}

/// What libddsc makes of the sample: the same bytes, but that in XCDR2 it leads an array of
/// structures in with its length.
template <class T>
Bytes onTheWire(const T& sample, std::int16_t representation) {
  Bytes bytes = encode(sample, representation);
  if constexpr (requires { sample.motor; }) {
    if (representation == 2) {
      const auto members = typeSupport<T>(representation)->members();
      const auto motor = std::find_if(members.begin(), members.end(),
                                      [](const auto& member) { return member.name == "motor"; });
      const auto* const length = reinterpret_cast<const std::byte*>(&motor->size);
      bytes.insert(bytes.begin() + 4 + motor->offset, length, length + sizeof motor->size);
    }
  }
  return bytes;
}

class Interop : public testing::Test {
 protected:
  /// Sends a sample over the peer and compares what the peer received and what comes back with what
  /// this project's encoder makes of it.
  template <class T>
  void exchange(const char* name, DataRepresentationId id) {
    const int number = id == DataRepresentationId::XCDR1 ? 1 : 2;
    SCOPED_TRACE(std::string(name) + " XCDR" + std::to_string(number));
    const std::string topic = std::string("echo/") + name + '/' + std::to_string(number);
    dds::pub::DataWriter<T> writer(publisher_, dds::topic::Topic<T>(participant_, topic + "/in"),
                                   reliable(dds::pub::qos::DataWriterQos())
                                       << DataRepresentation{id});
    dds::sub::DataReader<T> reader(subscriber_, dds::topic::Topic<T>(participant_, topic + "/out"),
                                   reliable(dds::sub::qos::DataReaderQos())
                                       << DataRepresentation{id});
    ASSERT_TRUE(waitUntil(
        [&] { return writer.matched_subscriptions() == 1 && reader.matched_publications() == 1; }));
    const T sent = cleanSample<T>();
    writer.write(sent);
    T received{};
    ASSERT_TRUE(waitUntil([&] {
      for (const auto& sample : reader.take()) {
        if (sample.info().valid()) received = sample.data();
      }
      return received.timestamp != 0;
    }));

    T expected = sent;
    expected.timestamp += 1;
    const auto representation = static_cast<std::int16_t>(id);
    EXPECT_EQ(encode(received, representation), encode(expected, representation));
    Bytes wire = peer_.received();
    EXPECT_EQ(wire, onTheWire(sent, representation));
    T decoded{};
    EXPECT_TRUE(typeSupport<T>(representation)->deserialize(wire, &decoded));
    const Bytes unmarked = encode(sent, representation);
    EXPECT_EQ(encode(decoded, representation), unmarked);
    if (wire == unmarked) return;
    *std::mismatch(unmarked.begin(), unmarked.end(), wire.begin()).second ^= std::byte{1};
    EXPECT_FALSE(typeSupport<T>(representation)->deserialize(wire, &decoded)) << "wrong length";
  }

  template <class Qos>
  static Qos reliable(Qos qos) {
    qos << dds::core::policy::Reliability::Reliable()
        << dds::core::policy::Durability::TransientLocal()
        << dds::core::policy::History::KeepLast(1);
    return qos;
  }

  PlainPeer peer_;
  dds::domain::DomainParticipant participant_{0};
  dds::pub::Publisher publisher_{participant_};
  dds::sub::Subscriber subscriber_{participant_};
};

TEST_F(Interop, EveryTypeGoesBothWaysInBothEncodings) {
  for (const auto id : {DataRepresentationId::XCDR1, DataRepresentationId::XCDR2}) {
    exchange<MotionObserved_>("MotionObserved_", id);
    exchange<SensorObserved_>("SensorObserved_", id);
    exchange<MotionCtrl_>("MotionCtrl_", id);
    exchange<RemoteControl_>("RemoteControl_", id);
  }
  EXPECT_EQ(peer_.end(), 0);
}

}  // namespace
