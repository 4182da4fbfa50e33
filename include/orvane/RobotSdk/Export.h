#pragma once

#define ORVANE_API __attribute__((visibility("default")))
