#pragma once

// Marks what libpbase.so and libpdbus.so offer; everything else in them is hidden.
#define PEXAL_API __attribute__((visibility("default")))
