// Copies on the simulated disks run on one worker thread, as on the gateway's
// storage service, and the model keeps their state (storage.transfers) so that a
// later run (the CLI's next poll) resumes what an earlier one started.
//
// Pace: a transfer may have copied rate * (clock - start) bytes by now, rate being
// the model's storage.copy_rate in bytes per second (0 or absent: no limit). Every
// storage operation first lets the worker catch up with that allowance and records
// what it copied, so with the clock pinned the figures follow the clock exactly and
// tests move a copy on by moving the clock, never by waiting.
#pragma once

#include <stdint.h>

#include <string>

namespace velsim {

// The path beneath the file root (descriptor root) of a gateway path on a disk,
// confined to that disk (ops_storage.cpp).
bool disk_relative_path(int root, const char* gateway_path, std::string* rel);

// Brings the model's transfers up to date with the worker (see above), waiting for
// it at most a bounded time. Under the platform lock.
void sync_transfers();

// Starts copying the file or folder at source to target (paths beneath the file root
// root, target not inside source); gateway paths name it in the model. Every file and
// folder is opened beneath the root without following a link, each time the copy
// touches it. Returns the transfer identifier, or 0 when the source cannot be read.
int32_t start_transfer(int root, const std::string& source, const std::string& target,
                       const char* gateway_source, const char* gateway_target);

// Fails every unfinished transfer reading or writing under folder (beneath the root) and waits
// (a bounded time) until the worker has let go of them.
void cancel_transfers_under(const std::string& folder);

// Stops the worker after its current step and joins it; copies not finished stay
// "copying" in the model, for a later run to resume. Runs when the library is
// unloaded; no copy starts afterwards.
void stop_copy_worker();

}  // namespace velsim
