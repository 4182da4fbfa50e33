#pragma once

/// The dds:: layer: the object-oriented DDS API over libddsc, as much of it as the project uses.
/// Names and reference semantics follow the ISO C++ DDS API; what differs is said where it differs.

#include "dds/core/Condition.hpp"
#include "dds/core/Duration.hpp"
#include "dds/core/Entity.hpp"
#include "dds/core/Exception.hpp"
#include "dds/core/Policy.hpp"
#include "dds/core/Qos.hpp"
#include "dds/core/Status.hpp"
#include "dds/domain/DomainParticipant.hpp"
#include "dds/pub/DataWriter.hpp"
#include "dds/sub/DataReader.hpp"
#include "dds/sub/Subscriber.hpp"
#include "dds/topic/Topic.hpp"
#include "dds/topic/TypeSupport.hpp"
