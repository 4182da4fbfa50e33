#pragma once

/// Everything that an application needs: the service, the two clients, their records.

#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionLowLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "orvane/RobotSdk/Records.h"
