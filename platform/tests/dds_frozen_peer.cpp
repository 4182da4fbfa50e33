// dds_frozen_peer DOMAIN TOPIC...: reads reliably from the topics until it is killed. The test that
// starts it stops it (SIGSTOP), so that what is sent to it stays unacknowledged.

#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "dds_support.h"

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const dds::domain::DomainParticipant participant(static_cast<std::uint32_t>(std::atoi(argv[1])));
  std::vector<dds::sub::DataReader<dds_test::Numbered>> readers;
  for (int i = 2; i < argc; ++i) {
    dds::sub::qos::DataReaderQos qos;
    qos << dds::core::policy::Reliability::Reliable();
    readers.emplace_back(dds::sub::Subscriber(participant),
                         dds::topic::Topic<dds_test::Numbered>(participant, argv[i]), qos);
  }
  for (;;) pause();
}
