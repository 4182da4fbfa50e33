#pragma once

#include <json/value.h>

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
///   "domain":   [{"name", "domain" (number), "url" (path of an XML profile, or the XML text itself)}]
///   "client":   [{"server", "domain" (name)}]             RPC clients that may be asked for
///   "eventBus": [{"server", "domain" (name), "topics" (most topics subscribed),
///                 "withService" (receive the server's events; default true),
///                 "withClient"  (may publish to the server; default true),
///                 "workers": {"count", "task"}, "role": "client" (default) or "server"}]
/// Unknown keys are ignored; an entry that lacks what it needs is logged and left out.
///
/// Threading: any thread may call any operation; initial and shutdown are serialised and must not be
/// called from a handler or data callback of this layer.
class PEXAL_API IDDSFactory {
 public:
  /// The process's own factory. Never null; lives until the process ends.
  static std::shared_ptr<IDDSFactory> instance();
  /// A further, independent factory (a virtual robot in the process of its client).
  static std::shared_ptr<IDDSFactory> create();

  /// Stops everything: pending calls end with kStopped, one-way requests that were taken get up to
  /// 1 s to be acknowledged, no callback or handler runs after it returns. Objects handed out stay
  /// valid and answer kStopped / false. Bounded, also with dead peers.
  virtual void shutdown() = 0;
  /// Joins the domains and prepares clients and buses. False (and everything undone) when a domain
  /// can't be joined or the document is no object; a null document starts nothing and returns false.
  /// True at once when already started.
  virtual bool initial(const Json::Value& document) = 0;

  /// See RPCClient::instance, IEventBus::instance and IDDSSubcriber::instance.
  virtual std::shared_ptr<RPCClient> rpcClient(const std::string& server) = 0;
  virtual std::shared_ptr<IEventBus> eventBus(const std::string& server) = 0;
  virtual std::shared_ptr<IDDSSubcriber> subscriber(const std::string& domain,
                                                    const std::string& topic) = 0;

  virtual ~IDDSFactory();
};

}  // namespace Pexal::PDBus
