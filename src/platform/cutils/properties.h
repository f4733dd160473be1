// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#define PROPERTY_VALUE_MAX 92

extern "C" {

// Copies the value of `key`, or `default_value` when it is unset or empty, into `value`, which
// holds PROPERTY_VALUE_MAX bytes. Returns the length of what was copied.
int property_get(const char* key, char* value, const char* default_value);

// 0 for "0", "n", "no", "false" and "off", 1 for "1", "y", "yes", "true" and "on", else the
// default.
int8_t property_get_bool(const char* key, int8_t default_value);

}  // extern "C"
