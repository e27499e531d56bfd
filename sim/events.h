// Events of the world around the simulated gateway (velconfig event, velconfig play).
#pragma once

#include <jansson.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace velsim {

// An event that does not apply (an unknown name, a parameter out of range, a change
// already made): nothing changed.
constexpr int32_t kEventRefused = -1;

// Applies the event name with its parameters (a JSON object of texts or numbers,
// borrowed) under the platform lock and the state file's lock, as one operation:
// 0 and the lines saying what changed, or a non-zero code and the reason (nothing
// changed; kStateFailed when the state file could not be read or saved).
int32_t apply_event(const char* name, json_t* params, std::vector<std::string>* lines, std::string* reason);

// The array member key of obj, made when missing or of another type.
json_t* array_at_of(json_t* obj, const char* key);

}  // namespace velsim
