#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ScriptedBus.h"
#include "pbase/CThread.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"

namespace scripted {

class Reader;

/// What the scripted objects share. `mutex` guards every member; nothing is called under it.
struct Bus::State {
  struct Handler {
    std::string server;
    std::string topic;
    Pexal::PDBus::EventHandler call;
  };

  std::mutex mutex;
  bool gone = false;
  Behaviour behaviour;
  RpcHandler handler;
  std::vector<Handler> handlers;
  std::vector<std::unique_ptr<Pexal::PBase::CThreadLite>> injectors;
  std::vector<std::shared_ptr<Reader>> readers;
  Seen seen;

  /// The state of the living Bus, or null.
  static std::shared_ptr<State> current();
};

class Reader final : public Pexal::PDBus::IBaseDDSReader {
 public:
  Reader(ReaderInfo info, Pexal::PDBus::IDDSSubcriber::RawCallback onSample)
      : info_(std::move(info)), onSample_(std::move(onSample)) {}

  void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) override;
  void delWaitSet(dds::core::cond::WaitSet& waitSet) override;
  bool push(const std::string& topic, const void* sample);
  void remove();
  ReaderInfo info();

 private:
  std::mutex mutex_;  // guards info_
  ReaderInfo info_;
  const Pexal::PDBus::IDDSSubcriber::RawCallback onSample_;
};

}  // namespace scripted
