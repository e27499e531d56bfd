// The simulated cloud client daemon: what tests can script and read back.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace velsim {

// One connection the daemon served: the bytes it received as the request, and
// whether the client closed the connection (rather than the daemon giving up on it).
struct CloudExchange {
  std::string request;
  bool closed_by_client = false;
};

// Replies built from the model (the default).
void cloud_from_model();
// Every following request is answered with bytes (a whole frame, header included),
// written in pieces writes pause_ms apart; with close_after the daemon then hangs up
// at once, even when bytes is less than the header announces.
void cloud_reply(const std::string& bytes, int pieces, int pause_ms, bool close_after);
// Requests are read and never answered.
void cloud_silent();
// "LocalPort" names a port where nothing listens, so connections are refused.
void cloud_refuse();
// The exchanges served so far, once at least n are complete or wait_ms has passed.
std::vector<CloudExchange> cloud_exchanges(size_t n, int wait_ms);
void set_app_market_timeout(int ms);
// Back to model replies, no exchanges, the default time-out.
void reset_cloud();

}  // namespace velsim
