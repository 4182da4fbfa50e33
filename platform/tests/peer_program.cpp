// A peer in a process of its own, which a test can stop and kill.
//   peer_program read TOPIC...     reads reliably from the topics
//   peer_program serve LEASE_MS    serves device D1 of robotServer; the methods "die" and "freeze"
//                                  do that to the process in the middle of the request

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "dds_support.h"
#include "pdbus/RPC.h"

using namespace platform_test;

namespace {

void read(int count, char** topics) {
  const dds::domain::DomainParticipant participant(kDomain);
  std::vector<dds::sub::DataReader<Numbered>> readers;
  for (int i = 0; i < count; ++i) {
    readers.emplace_back(
        dds::sub::Subscriber(participant), dds::topic::Topic<Numbered>(participant, topics[i]),
        dds::sub::qos::DataReaderQos() << dds::core::policy::Reliability::Reliable());
  }
  for (;;) pause();
}

void serve(int leaseMs) {
  const Node node(1, {0, leaseMs});
  const auto server = Pexal::PDBus::RPCServer::create(
      node.factory, "host", "robotServer", "D1", [](const Pexal::PDBus::RpcRequest& request) {
        if (request.method == "die") raise(SIGKILL);
        if (request.method == "freeze") raise(SIGSTOP);
        return Pexal::PDBus::RpcReply{request.document, 0, Pexal::PDBus::RpcStatus::kOk};
      });
  for (;;) pause();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  if (std::string(argv[1]) == "read") read(argc - 2, argv + 2);
  serve(std::atoi(argv[2]));
}
