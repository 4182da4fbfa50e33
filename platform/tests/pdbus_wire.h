#pragma once

// Scripted peers that speak the wire types by hand.

#include <cstring>
#include <optional>

#include "PDBus.h"
#include "dds_support.h"

namespace platform_test {

constexpr std::uint32_t kRobot = 1;
constexpr std::uint32_t kApp = 2;
constexpr std::uint32_t kPeer = 3;

/// Documents that look bad: too large, too deep, no JSON, no UTF-8.
inline const std::string kTooLarge = "\"" + std::string(2U << 20, 'x') + "\"";
inline std::vector<std::string> badJson() {
  return {"{\"a\":", "", "\"\xff\xfe\"", nested(1000), std::string(100'000, '['), kTooLarge};
}

/// What a scripted endpoint offers or asks for.
struct RawQos {
  std::string partition;
  std::string userData;
  dds_reliability_kind_t reliability = DDS_RELIABILITY_RELIABLE;
  dds_durability_kind_t durability = DDS_DURABILITY_VOLATILE;
};

/// A participant apart from the contexts; what it makes goes with it.
class RawParticipant {
 public:
  explicit RawParticipant(std::uint32_t domain = kPeer)
      : domain_(dds_create_domain(domain, profile(domain).c_str())),
        participant_(dds_create_participant(domain, nullptr, nullptr)) {
    EXPECT_GT(domain_, 0);
    EXPECT_GT(participant_, 0);
  }
  ~RawParticipant() { dds_delete(domain_); }
  RawParticipant(const RawParticipant&) = delete;
  RawParticipant& operator=(const RawParticipant&) = delete;

  [[nodiscard]] dds_entity_t topic(const dds_topic_descriptor_t& type, const std::string& name) {
    return checked(dds_create_topic(participant_, &type, name.c_str(), nullptr, nullptr));
  }
  [[nodiscard]] dds_entity_t writer(dds_entity_t topic, const RawQos& wanted = {}) {
    return make(dds_create_writer, topic, wanted);
  }
  [[nodiscard]] dds_entity_t reader(dds_entity_t topic, const RawQos& wanted = {}) {
    return make(dds_create_reader, topic, wanted);
  }

 private:
  static dds_entity_t checked(dds_entity_t made) {
    EXPECT_GT(made, 0);
    return made;
  }
  dds_entity_t make(decltype(dds_create_writer)& create, dds_entity_t topic,
                    const RawQos& wanted) const {
    dds_qos_t* const qos = dds_create_qos();
    dds_qset_reliability(qos, wanted.reliability, DDS_SECS(5));
    dds_qset_durability(qos, wanted.durability);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    dds_qset_userdata(qos, wanted.userData.data(), wanted.userData.size());
    if (!wanted.partition.empty()) dds_qset_partition1(qos, wanted.partition.c_str());
    const dds_entity_t made = create(participant_, topic, qos, nullptr);
    dds_delete_qos(qos);
    return checked(made);
  }

  dds_entity_t domain_;
  dds_entity_t participant_;
};

inline bool awaitReader(dds_entity_t writer) {
  return waitUntil([&] {
    dds_publication_matched_status_t status{};
    return dds_get_publication_matched_status(writer, &status) == DDS_RETCODE_OK &&
           status.current_count > 0;
  });
}
inline bool awaitWriter(dds_entity_t reader) {
  return waitUntil([&] {
    dds_subscription_matched_status_t status{};
    return dds_get_subscription_matched_status(reader, &status) == DDS_RETCODE_OK &&
           status.current_count > 0;
  });
}
/// The next sample, to be freed with its descriptor; false when none comes in time.
template <class T>
bool awaitSample(dds_entity_t reader, T& sample) {
  void* pointer = &sample;
  dds_sample_info_t info;
  return waitUntil([&] { return dds_take(reader, &pointer, &info, 1, 1) == 1 && info.valid_data; });
}

inline dds_sequence_octet octets(const std::string& text) {
  dds_sequence_octet result{};
  result._length = result._maximum = static_cast<std::uint32_t>(text.size());
  result._buffer = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
  return result;
}

/// A client of device "D1".
class RawClient {
 public:
  static constexpr const char* kHome = "client/000102030405060708090a0b0c0d0e0f";

  explicit RawClient(const std::string& announced = kHome, std::uint32_t domain = kPeer)
      : participant_(domain),
        reader_(participant_.reader(
            participant_.topic(Pexal_PDBus_Reply_desc, "robotServer/rpc/reply"), {kHome, {}})),
        writer_(participant_.writer(
            participant_.topic(Pexal_PDBus_Request_desc, "robotServer/rpc/request"),
            {"device/D1", announced})) {
    for (std::uint8_t i = 0; i < 16; ++i) id_[i] = i;
  }

  bool matched() { return awaitReader(writer_); }
  bool matchedBothWays() { return matched() && awaitWriter(reader_); }
  void write(std::uint64_t number, const std::string& document, bool oneWay = false,
             const std::string& method = "act", std::uint8_t firstIdByte = 0) {
    Pexal_PDBus_Request request{};
    std::memcpy(request.client, id_, sizeof(id_));
    request.client[0] = firstIdByte;
    request.number = number;
    request.oneWay = oneWay;
    request.service = const_cast<char*>("service");
    request.method = const_cast<char*>(method.c_str());
    request.document = octets(document);
    EXPECT_EQ(dds_write(writer_, &request), DDS_RETCODE_OK);
  }
  bool acknowledged() { return dds_wait_for_acks(writer_, DDS_SECS(10)) == DDS_RETCODE_OK; }
  /// (number, status) of the next reply; nothing when none comes in time.
  std::optional<std::pair<std::uint64_t, std::uint32_t>> read() {
    Pexal_PDBus_Reply reply{};
    const bool came = awaitSample(reader_, reply);
    const auto result = std::make_pair(reply.number, reply.status);
    dds_sample_free(&reply, &Pexal_PDBus_Reply_desc, DDS_FREE_CONTENTS);
    if (!came) return std::nullopt;
    return result;
  }

 private:
  RawParticipant participant_;
  dds_entity_t reader_;
  dds_entity_t writer_;
  std::uint8_t id_[16];
};

/// A server of device "D1" that answers to whoever listens.
class RawServer {
 public:
  explicit RawServer(std::uint32_t domain = kPeer)
      : participant_(domain),
        reader_(participant_.reader(
            participant_.topic(Pexal_PDBus_Request_desc, "robotServer/rpc/request"),
            {"device/D1", {}})),
        writer_(
            participant_.writer(participant_.topic(Pexal_PDBus_Reply_desc, "robotServer/rpc/reply"),
                                {"client/*", {}})) {}
  ~RawServer() { dds_sample_free(&request_, &Pexal_PDBus_Request_desc, DDS_FREE_CONTENTS); }

  bool meetsClient() { return awaitReader(writer_); }
  /// Takes the next request; false when none comes.
  bool receive() {
    dds_sample_free(&request_, &Pexal_PDBus_Request_desc, DDS_FREE_CONTENTS);
    request_ = {};
    return awaitSample(reader_, request_);
  }
  /// Answers the request taken last, or one `ahead` of it, or in another client's name.
  void reply(const std::string& document, std::uint32_t status = 0, int ahead = 0,
             std::uint8_t idChange = 0) {
    Pexal_PDBus_Reply reply{};
    std::memcpy(reply.client, request_.client, sizeof(reply.client));
    reply.client[0] ^= idChange;
    reply.number = request_.number + static_cast<std::uint64_t>(ahead);
    reply.status = status;
    reply.document = octets(document);
    EXPECT_EQ(dds_write(writer_, &reply), DDS_RETCODE_OK);
  }
  void vanish() {
    dds_delete(writer_);
    dds_delete(reader_);
  }

 private:
  RawParticipant participant_;
  dds_entity_t reader_;
  dds_entity_t writer_;
  Pexal_PDBus_Request request_{};
};

/// Publishes events.
class RawPublisher {
 public:
  explicit RawPublisher(const char* topic = "robotServer/event/server",
                        std::uint32_t domain = kPeer)
      : participant_(domain),
        writer_(participant_.writer(participant_.topic(Pexal_PDBus_Event_desc, topic))) {}
  bool matched() { return awaitReader(writer_); }
  void write(std::uint64_t number, const std::string& payload, const std::string& topic = "up",
             std::uint32_t openMs = 0) {
    Pexal_PDBus_Event event{};
    event.publisher[0] = 7;
    event.number = number;
    event.openMs = openMs;
    event.topic = const_cast<char*>(topic.c_str());
    event.payload = octets(payload);
    EXPECT_EQ(dds_write(writer_, &event), DDS_RETCODE_OK);
  }

 private:
  RawParticipant participant_;
  dds_entity_t writer_;
};

}  // namespace platform_test
