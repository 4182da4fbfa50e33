#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ScriptedBus.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"

namespace scripted {

class Reader;

/// What the scripted objects share. `mutex` guards every member; nothing is called under it.
struct Bus::State {
  struct Handler {
    Subscription where;
    Pexal::PDBus::EventHandler call;
  };

  std::mutex mutex;
  bool gone = false;

  RpcHandler handler;
  std::vector<Request> requests;
  std::map<std::string, std::size_t> clientsAsked;
  bool rpcAvailable = true;

  std::vector<Handler> handlers;
  std::vector<Published> published;
  bool publishResult = true;
  bool eventBusAvailable = true;
  std::vector<std::unique_ptr<Pexal::PBase::CThreadLite>> injectors;

  std::vector<Json::Value> factoryDocuments;
  std::size_t factoryShutdowns = 0;
  bool factoryResult = true;

  std::vector<std::shared_ptr<Reader>> readers;
  std::vector<Json::Value> qosDocuments;
  bool subscribersAvailable = true;
  std::string failingReaderTopic;

  /// The state of the living Bus, or null.
  static std::shared_ptr<State> current();
};

/// One typed reader: one callback at a time, and a removal waits for the one in flight.
class Reader final : public Pexal::PDBus::IBaseDDSReader {
 public:
  Reader(std::string domain, std::string topic, Pexal::PDBus::IDDSSubcriber::RawCallback onSample,
         Pexal::PDBus::IDDSSubcriber::WriterFilter takesWriter)
      : info_{std::move(domain), std::move(topic), false, 0, std::move(takesWriter)},
        onSample_(std::move(onSample)) {}

  void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) override;
  void delWaitSet(dds::core::cond::WaitSet& waitSet) override;
  bool push(const std::string& topic, const void* sample);
  void remove();
  ReaderInfo info();

 private:
  Pexal::PBase::CMutex mutex_;  // guards all but onSample_
  Pexal::PBase::CCondition idle_;
  bool delivering_ = false;
  std::thread::id deliverer_;  // whose callback runs now
  ReaderInfo info_;
  const Pexal::PDBus::IDDSSubcriber::RawCallback onSample_;
};

}  // namespace scripted
