#pragma once

#include <json/value.h>

#include <dds/domain/DomainParticipant.hpp>
#include <memory>
#include <string>

#include "pbase/Export.h"

namespace Pexal::PDBus {

class RPCClient;
class IEventBus;
class IDDSSubcriber;

/// Starts and stops the DDS layer from one JSON document, and hands out what lives in it.
///
/// The document:
///   "domain":   [{"name", "domain" (number), "url" (path of an XML profile, or the XML text
///   itself)}] "client":   [{"server", "domain" (name)}]             RPC clients that may be asked
///   for "eventBus": [{"server", "domain" (name), "topics" (most topics subscribed),
///                 "withService" (receive the server's events; default true),
///                 "withClient"  (may publish to the server; default true),
///                 "workers": {"count", "task"}, "role": "client" (default) or "server"}]
/// Unknown keys are ignored; an entry that lacks what it needs is logged and left out.
///
/// A domain's settings are those of the first in this process who joined it: a further factory on
/// the same domain shares them, and its "url" has no effect (logged at level 5 when it says
/// something else).
///
/// Threading: any thread may call any operation. initial and shutdown are serialised and must not
/// be called from a handler or data callback of this layer; initial blocks for as long as DDS takes
/// to open its sockets, and up to 3 s for members that leave (DomainMember::announceEnd). The
/// lookups (rpcClient, eventBus, subscriber, participant) never wait for either: until initial has
/// succeeded, and once shutdown has begun, they find nothing.
class PEXAL_API IDDSFactory {
 public:
  /// The process's own factory. Never null; lives until the process ends.
  static std::shared_ptr<IDDSFactory> instance();
  /// A further, independent factory (a virtual robot in the process of its client).
  static std::shared_ptr<IDDSFactory> create();

  /// Stops everything: pending calls end with kStopped, one-way requests that were taken get up to
  /// 1 s to be acknowledged, no callback or handler begins after it returns. Objects handed out
  /// stay valid and answer kStopped / false; readers start anew with the next initial. Bounded,
  /// also with dead peers: about 2 s (that second, and libddsc's own for what is still
  /// unacknowledged). It waits for data callbacks that are running, of removed readers too: up to 3
  /// s more, then they are given up with a log line.
  virtual void shutdown() = 0;
  /// Joins the domains and prepares clients and buses. False (everything undone, the reason logged
  /// at level 4 with libddsc's own words) when a domain can't be joined, when DDS refuses a client
  /// or bus, or when the document is no object; a null document starts nothing and returns false.
  /// True at once when already started.
  virtual bool initial(const Json::Value& document) = 0;

  /// See RPCClient::instance, IEventBus::instance and IDDSSubcriber::instance.
  virtual std::shared_ptr<RPCClient> rpcClient(const std::string& server) = 0;
  virtual std::shared_ptr<IEventBus> eventBus(const std::string& server) = 0;
  virtual std::shared_ptr<IDDSSubcriber> subscriber(const std::string& domain,
                                                    const std::string& topic) = 0;
  /// The participant on the domain of that name, to make topics and writers of one's own from. A
  /// null reference when not started or unknown. shutdown closes it and all that was made from it.
  virtual dds::domain::DomainParticipant participant(const std::string& domain) = 0;

  virtual ~IDDSFactory();
};

}  // namespace Pexal::PDBus
