#include "support/test_path.hpp"

namespace velmora_can_bridge {

class TestPath::ThroughFrames {};

TestPath::TestPath(ScriptedBackend& script) : backend_(&script) {}

TestPath::~TestPath() = default;

}  // namespace velmora_can_bridge
