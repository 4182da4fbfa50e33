/* A peer that knows nothing of the project but its IDL: plain libddsc.
 *
 * For each message type and data representation R (1: XCDR1, 2: XCDR2) it reads the topic
 * "echo/TYPE/R/in", adds one to the sample's time stamp and writes it to "echo/TYPE/R/out". What it
 * received it prints, encapsulation header and body as they came, one line of hexadecimal digits a
 * sample. It ends when its standard input is closed, or after a minute.
 */
#include <dds/dds.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "Motion.h"

/* Exported by libddsc, for its opaque encoded samples. */
uint32_t ddsi_serdata_size(const struct ddsi_serdata* encoded);
void ddsi_serdata_to_ser(const struct ddsi_serdata* encoded, size_t from, size_t size, void* out);
void ddsi_serdata_unref(struct ddsi_serdata* encoded);

enum { kTypes = 4, kRepresentations = 2, kLargestSample = 1024 };

struct Type {
  const char* name;
  const dds_topic_descriptor_t* descriptor;
  size_t timestamp;
};

static const struct Type kType[kTypes] = {
    {"MotionObserved_", &orvane_msg_dds__MotionObserved__desc,
     offsetof(orvane_msg_dds__MotionObserved_, timestamp)},
    {"SensorObserved_", &orvane_msg_dds__SensorObserved__desc,
     offsetof(orvane_msg_dds__SensorObserved_, timestamp)},
    {"MotionCtrl_", &orvane_msg_dds__MotionCtrl__desc,
     offsetof(orvane_msg_dds__MotionCtrl_, timestamp)},
    {"RemoteControl_", &orvane_msg_dds__RemoteControl__desc,
     offsetof(orvane_msg_dds__RemoteControl_, timestamp)},
};

struct Echo {
  const struct Type* type;
  dds_entity_t reader;
  dds_entity_t writer;
};

static dds_entity_t checked(dds_entity_t result, const char* what) {
  if (result < 0) {
    fprintf(stderr, "plain_peer: %s: %s\n", what, dds_strretcode(-result));
    exit(1);
  }
  return result;
}

static dds_entity_t makeTopic(dds_entity_t participant, const struct Type* type, int representation,
                              const char* direction) {
  char name[64];
  snprintf(name, sizeof name, "echo/%s/%d/%s", type->name, representation, direction);
  return checked(dds_create_topic(participant, type->descriptor, name, NULL, NULL), name);
}

static struct Echo makeEcho(dds_entity_t participant, const struct Type* type, int representation) {
  const dds_data_representation_id_t id =
      representation == 1 ? DDS_DATA_REPRESENTATION_XCDR1 : DDS_DATA_REPRESENTATION_XCDR2;
  dds_qos_t* qos = dds_create_qos();
  dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
  dds_qset_durability(qos, DDS_DURABILITY_TRANSIENT_LOCAL);
  dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 1);
  dds_qset_data_representation(qos, 1, &id);
  const dds_entity_t in = makeTopic(participant, type, representation, "in");
  const dds_entity_t out = makeTopic(participant, type, representation, "out");
  const struct Echo echo = {type, checked(dds_create_reader(participant, in, qos, NULL), "reader"),
                            checked(dds_create_writer(participant, out, qos, NULL), "writer")};
  dds_delete_qos(qos);
  return echo;
}

static void print(dds_entity_t reader) {
  static unsigned char bytes[kLargestSample];
  struct ddsi_serdata* encoded = NULL;
  dds_sample_info_t info;
  if (checked(dds_readcdr(reader, &encoded, 1, &info, DDS_ANY_STATE), "read") == 0) return;
  const size_t size = info.valid_data ? ddsi_serdata_size(encoded) : 0;
  if (size > 0 && size <= sizeof bytes) {
    ddsi_serdata_to_ser(encoded, 0, size, bytes);
    for (size_t i = 0; i < size; ++i) printf("%02x", bytes[i]);
    printf("\n");
    fflush(stdout);
  }
  ddsi_serdata_unref(encoded);
}

static void pass(const struct Echo* echo) {
  static uint64_t sample[kLargestSample / sizeof(uint64_t)];
  void* samples[] = {sample};
  dds_sample_info_t info;
  print(echo->reader);
  while (checked(dds_take(echo->reader, samples, &info, 1, 1), "take") > 0) {
    if (info.valid_data) {
      ++*(uint64_t*)((char*)sample + echo->type->timestamp);
      checked(dds_write(echo->writer, sample), "write");
    }
  }
}

int main(void) {
  struct Echo echoes[kTypes * kRepresentations];
  size_t count = 0;
  const dds_entity_t participant = checked(dds_create_participant(0, NULL, NULL), "participant");
  const dds_entity_t waitset = checked(dds_create_waitset(participant), "waitset");
  for (int type = 0; type < kTypes; ++type) {
    for (int representation = 1; representation <= kRepresentations; ++representation) {
      struct Echo* const echo = &echoes[count++];
      *echo = makeEcho(participant, &kType[type], representation);
      const dds_entity_t ready =
          checked(dds_create_readcondition(echo->reader, DDS_ANY_STATE), "read condition");
      checked(dds_waitset_attach(waitset, ready, 0), "attach");
    }
  }
  alarm(60);
  struct pollfd input = {.fd = STDIN_FILENO, .events = POLLIN};
  while (poll(&input, 1, 0) == 0) {
    checked(dds_waitset_wait(waitset, NULL, 0, DDS_MSECS(50)), "wait");
    for (size_t i = 0; i < count; ++i) pass(&echoes[i]);
  }
  dds_delete(participant);
  return 0;
}
