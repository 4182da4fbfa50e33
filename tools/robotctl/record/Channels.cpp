#include "record/Channels.h"

namespace robotctl {

const std::array<ChannelKind, kChannels> kChannelKinds = {{
    {"/motion", "cdr", "orvane_sdk/msg/ObservedMotion", "ros2msg", ""},
    {"/sensor", "cdr", "orvane_sdk/msg/ObservedSensor", "ros2msg", ""},
    {"/event", "json", "orvane_sdk.Event", "jsonschema",
     R"({"type":"object","title":"Event","description":"An event of the robot's host",)"
     R"("properties":{"topic":{"type":"string"},"detail":{"description":"the event's own"}}})"},
    {"/connection", "json", "orvane_sdk.Connection", "jsonschema",
     R"({"type":"object","title":"Connection","description":"A change of the connection's state",)"
     R"("properties":{"state":{"type":"integer","description":"1 connected, 2 in control"},)"
     R"("code":{"type":"integer","description":"why"}}})"},
    {"/state", "json", "orvane_sdk.MotionState", "jsonschema",
     R"({"type":"object","title":"MotionState",)"
     R"("description":"What the robot answers when asked for its motion state",)"
     R"("properties":{"posture":{"type":"string"},"control":{"type":"object","properties":{)"
     R"("controlled":{"type":"boolean"},"holder":{"type":"string"}}}}})"},
    {"/error", "json", "orvane_sdk.Error", "jsonschema",
     R"({"type":"object","title":"Error","description":"The error number has changed",)"
     R"("properties":{"code":{"type":"integer","description":"0: none"},)"
     R"("text":{"type":"string"}}})"},
    {"/recorder", "json", "orvane_sdk.Recorder", "jsonschema",
     R"({"type":"object","title":"Recorder","description":"What the recorder has to say",)"
     R"("properties":{"what":{"enum":["begin","silent","answers","overflow","end"]}}})"},
}};

}  // namespace robotctl
