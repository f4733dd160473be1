// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#define PROPERTY_VALUE_MAX 92

extern "C" {

// Copies the value of the property `key` to `value`, or `default_value` if the property is unset or
// empty. `value` must have room for PROPERTY_VALUE_MAX bytes. Returns the length of the copied
// text.
int property_get(const char* key, char* value, const char* default_value);

// Returns 0 for "0", "n", "no", "false" and "off", 1 for "1", "y", "yes", "true" and "on", and the
// default for any other value.
int8_t property_get_bool(const char* key, int8_t default_value);

}  // extern "C"
