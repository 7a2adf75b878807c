// The error that long work throws when its stop_token asks it to stop.
#pragma once
#include <stdexcept>
#include <stop_token>

namespace vorlan {

struct Cancelled : std::runtime_error {
  Cancelled() : std::runtime_error("cancelled") {}
};

inline void throwIfCancelled(const std::stop_token& stop) {
  if (stop.stop_requested()) throw Cancelled{};
}

}  // namespace vorlan
