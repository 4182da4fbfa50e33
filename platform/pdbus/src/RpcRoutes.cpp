#include "RpcRoutes.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace Pexal::PDBus {

RpcRoutes::RpcRoutes(dds_entity_t participant, dds_entity_t replyTopic, std::string server,
                     std::function<void()> wake)
    : participant_(participant),
      replyTopic_(replyTopic),
      server_(std::move(server)),
      wake_(std::move(wake)),
      mismatch_("topic " + PDBus::replyTopic(server_), wake_) {}

RpcRoutes::~RpcRoutes() {
  std::vector<Entity> writers;
  for (auto& [handle, route] : routes_) writers.push_back(std::move(route->writer_));
  deleteWriters(std::move(writers));
}

void RpcRoutes::findNew(dds_entity_t requestReader) {
  const std::vector<dds_instance_handle_t> matched = matchedWriters(requestReader);
  for (auto& [handle, route] : routes_) {
    route->gone_ = std::ranges::find(matched, handle) == matched.end();
  }
  for (const dds_instance_handle_t handle : matched) {
    std::unique_ptr<Route>& route = routes_[handle];
    if (route && route->client_) continue;
    const auto writer = matchedWriter(requestReader, handle);
    if (!route) route = std::make_unique<Route>();
    if (!writer) {
      route->gone_ = true;
      continue;
    }
    route->client_ = clientOfPartition(writer->userData);
    if (route->client_) open(*route);
  }
}

void RpcRoutes::open(Route& route) {
  if (routes_.size() > kMaxRoutes) {
    if (log_.permit()) {
      ILogger::instance()->log(3, kLogTag, "rpc server %s: too many clients\n", server_.c_str());
    }
    return;
  }
  route.wake_ = wake_;
  const QosPtr partition = partitionQos(clientPartition(*route.client_));
  const QosPtr qos = reliableQos(kWriteMs);
  const ListenerPtr listener = makeListener(&route);
  dds_lset_publication_matched(listener.get(), onReadersChanged);
  mismatch_.listenWith(listener.get());
  route.publisher_ = checkedEntity(dds_create_publisher(participant_, partition.get(), nullptr),
                                   "reply publisher", server_);
  if (!route.publisher_) return;
  route.writer_ = checkedEntity(
      dds_create_writer(route.publisher_.get(), replyTopic_, qos.get(), listener.get()),
      "reply writer", server_);
}

void RpcRoutes::onReadersChanged(dds_entity_t, dds_publication_matched_status_t status,
                                 void* argument) {
  auto& route = *static_cast<Route*>(argument);
  route.readers_ = status.current_count;
  route.wake_();
}

RpcRoutes::Route& RpcRoutes::of(dds_instance_handle_t requestWriter) {
  std::unique_ptr<Route>& route = routes_[requestWriter];
  if (!route) {
    route = std::make_unique<Route>();
    route->gone_ = true;
  }
  return *route;
}

bool RpcRoutes::hasGone() const {
  return std::ranges::any_of(routes_, [](const auto& entry) { return entry.second->gone_; });
}

void RpcRoutes::dropGone() {
  std::erase_if(routes_, [](const auto& entry) {
    const Route& route = *entry.second;
    if (!route.gone_) return false;
    // Deleting the writer would wait for the last reply to be acknowledged; look again later.
    return !route.writer_ || route.readers_ == 0 ||
           dds_wait_for_acks(route.writer_.get(), 0) == DDS_RETCODE_OK;
  });
}

void RpcRoutes::send(Route& route, Reply reply) {
  if (!route.writer_) return;
  const bool free = route.readers_ > 0 && route.parked_.empty();
  if (!free || !write(route, reply)) park(route, std::move(reply));
}

void RpcRoutes::park(Route& route, Reply reply) {
  const std::size_t bytes = route.parkedBytes_ + reply.document.size();
  if (route.parked_.size() < kMaxParked && bytes <= kMaxParkedBytes) {
    route.parkedBytes_ = bytes;
    route.parked_.push_back(std::move(reply));
  } else if (log_.permit()) {
    ILogger::instance()->log(3, kLogTag, "rpc server %s: a client takes no replies\n",
                             server_.c_str());
  }
}

void RpcRoutes::sendParked() {
  const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
  const bool retry = now >= retryAtUs_;
  if (retry) retryAtUs_ = now + kStuckRetryMs * 1000;
  for (auto& [handle, route] : routes_) {
    if (route->stuck_) {
      if (!retry || dds_wait_for_acks(route->writer_.get(), 0) != DDS_RETCODE_OK) continue;
      route->stuck_ = false;
    }
    while (route->readers_ > 0 && !route->parked_.empty() &&
           write(*route, route->parked_.front())) {
      route->parkedBytes_ -= route->parked_.front().document.size();
      route->parked_.pop_front();
    }
  }
}

bool RpcRoutes::hasStuck() const {
  return std::ranges::any_of(routes_, [](const auto& entry) {
    return entry.second->readers_ > 0 && !entry.second->parked_.empty();
  });
}

bool RpcRoutes::write(Route& route, const Reply& reply) {
  Pexal_PDBus_Reply sample{};
  std::memcpy(sample.client, route.client_->data(), route.client_->size());
  sample.number = reply.number;
  sample.status = static_cast<std::uint32_t>(reply.status);
  sample.reason = reply.reason;
  sample.document = octetsOf(reply.document);
  const dds_return_t result = dds_write(route.writer_.get(), &sample);
  route.stuck_ = result == DDS_RETCODE_TIMEOUT;
  if (route.stuck_) return false;
  if (result != DDS_RETCODE_OK && log_.permit()) {
    ILogger::instance()->log(3, kLogTag, "rpc server %s: reply not sent: %s\n", server_.c_str(),
                             dds_strretcode(result));
  }
  return true;
}

}  // namespace Pexal::PDBus
