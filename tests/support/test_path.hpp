// The way from a controller under test to the scripted bus.
#pragma once

#include <memory>

#include "support/scripted_backend.hpp"

namespace velmora_can_bridge {

/// What the controller is given as its bus: `script` itself, or in the program that runs the same
/// tests through CAN frames a client that reaches it over a bus. `script` outlives it.
class TestPath {
 public:
  explicit TestPath(ScriptedBackend& script);
  ~TestPath();
  TestPath(const TestPath&) = delete;
  TestPath(TestPath&&) = delete;
  TestPath& operator=(const TestPath&) = delete;
  TestPath& operator=(TestPath&&) = delete;

  CanOpenBackend& backend() { return *backend_; }

 private:
  class ThroughFrames;
  std::unique_ptr<ThroughFrames> through_frames_;
  CanOpenBackend* backend_;
};

}  // namespace velmora_can_bridge
