#pragma once

/// Marks what librobotMotionSdk.so offers; everything else in it is hidden.
#define ORVANE_API __attribute__((visibility("default")))
