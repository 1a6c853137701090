#include <cstdio>

#include "velmora_can_bridge/config/board_file.hpp"

int main() {
  const auto loaded = velmora_can_bridge::parse_board("nodes: 3");
  std::puts(loaded.problems.at(0).message.c_str());
}
