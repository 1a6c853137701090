// Transfers between two processes over a CAN interface, beside the same frames sent through raw
// sockets. Prints JSON.
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "raw_socket.hpp"
#include "support/every_operation.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;
using Action = std::function<void()>;

// Node 1 is a raw socket, node 2 a simulated node.
constexpr std::uint8_t raw_node = 1;
constexpr std::uint8_t simulated_node = 2;
constexpr std::uint16_t index = 0x2000;
constexpr std::uint8_t sub_index = 1;

// Floor and measured take turns, so that both see the same machine.
constexpr int rounds = 600;
constexpr std::chrono::milliseconds slice{2};
constexpr std::chrono::seconds start_patience{20};

/// A process of its own that runs `serve` until this one ends it, or ends itself.
class Process {
 public:
  explicit Process(const Action& serve) : id_(::fork()) {
    if (id_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      run(serve);
    }
    if (id_ < 0) {
      throw std::runtime_error("cannot start a process");
    }
  }
  ~Process() {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
  Process(const Process&) = delete;
  Process(Process&&) = delete;
  Process& operator=(const Process&) = delete;
  Process& operator=(Process&&) = delete;

 private:
  [[noreturn]] static void run(const Action& serve) {
    try {
      serve();
    } catch (const std::exception& error) {
      std::cerr << error.what() << std::endl;
    }
    ::_exit(1);
  }

  const pid_t id_;
};

can_frame raw_frame(std::uint16_t id, std::uint8_t first_byte) {
  can_frame frame{};
  frame.can_id = id;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): both names are the length
  frame.can_dlc = CAN_MAX_DLEN;
  frame.data[0] = first_byte;
  frame.data[2] = index >> 8U;
  frame.data[3] = sub_index;
  return frame;
}

/// Answers each upload request with the frame of four bytes.
void serve_raw(const std::string& interface) {
  const RawSocket socket(interface, 0x600 + raw_node);
  can_frame answer = raw_frame(0x580 + raw_node, 0x43);
  for (std::uint8_t byte = 0; byte < 4; ++byte) {
    answer.data[4 + byte] = byte;
  }
  for (;;) {
    socket.receive();
    socket.send(answer);
  }
}

void serve_simulated(const std::string& interface) {
  SimulatedBusNode node(simulated_node);
  node.device().add_object(index, sub_index, {ObjectAccess::read_write, {0, 1, 2, 3}});
  SocketCanChannel channel(interface);
  SimulatedNodeServer server(channel, {&node});
  server.boot();
  for (;;) {
    server.poll(std::chrono::minutes(1));
  }
}

/// Mean time of the action, run again and again for a slice of time.
double time_of(const Action& action, std::size_t count) {
  const auto begin = steady_clock::now();
  for (std::size_t done = 0; done < count; ++done) {
    action();
  }
  return Nanoseconds(steady_clock::now() - begin).count() / static_cast<double>(count);
}

/// How often the action runs in a slice.
std::size_t count_in_slice(const Action& action) {
  time_of(action, 10);
  const double once = time_of(action, 20);
  return std::max<std::size_t>(static_cast<std::size_t>(Nanoseconds(slice).count() / once), 5);
}

double quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values.at(static_cast<std::size_t>(share * static_cast<double>(values.size() - 1)));
}

/// Prints how much longer `measured` takes than `floor`.
void compare(const char* name, const Action& floor, const Action& measured) {
  const std::size_t count = count_in_slice(floor);
  std::vector<double> floors;
  std::vector<double> times;
  std::vector<double> ratios;
  for (int round = 0; round < rounds; ++round) {
    const bool floor_first = round % 2 == 0;
    const double first = time_of(floor_first ? floor : measured, count);
    const double second = time_of(floor_first ? measured : floor, count);
    floors.push_back(floor_first ? first : second);
    times.push_back(floor_first ? second : first);
    ratios.push_back(times.back() / floors.back());
  }
  std::cout << R"(  {"name": ")" << name << R"(", "rounds": )" << rounds << R"(, "floor_ns": )"
            << quantile(floors, 0.5) << R"(, "measured_ns": )" << quantile(times, 0.5)
            << R"(, "ratio": )" << quantile(ratios, 0.5) << R"(, "ratio_p25": )"
            << quantile(ratios, 0.25) << R"(, "ratio_p75": )" << quantile(ratios, 0.75) << "}";
}

/// Keeps this process, and those that it starts, on one processor: they take turns there, and what
/// is timed is their work, not how long the system takes to wake another processor.
void stay_on_one_processor() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(0, &processors);
  if (::sched_setaffinity(0, sizeof processors, &processors) != 0) {
    throw std::runtime_error("cannot stay on one processor");
  }
}

void require(bool done, const char* what) {
  if (!done) {
    throw std::runtime_error(what);
  }
}

/// What is measured, on one interface.
class InterfaceBench {
 public:
  explicit InterfaceBench(const std::string& interface)
      : channel_(interface), raw_(interface, 0x580 + raw_node), raw_sender_(interface) {
    board_.pdos = {{1, "RPDO", 0, {{index, sub_index, 16, "right"}, {0x2001, 0, 48, "rest"}}}};
    write_rpdo_.refresh_shadow = 1;
    const auto end = steady_clock::now() + start_patience;
    while (!backend_.sdo_read(simulated_node, index, sub_index, data_)) {
      require(steady_clock::now() < end, "the simulated node does not answer");
    }
    // The node has no such objects: a refresh synchronises the image all the same.
    require(run(write_rpdo_), "an RPDO was not sent");
    write_rpdo_.refresh_shadow = 0;
  }

  void run_all() {
    const Action ping_pong = [this] {
      raw_.send(request_);
      raw_.receive();
    };
    const Action send = [this] { raw_sender_.send(raw_rpdo_); };
    std::cout << "[\n";
    compare("interface/SDO upload, backend", ping_pong, [this] {
      data_.clear();
      require(backend_.sdo_read(simulated_node, index, sub_index, data_), "an upload failed");
    });
    std::cout << ",\n";
    compare("interface/SDO download, backend", ping_pong, [this] {
      require(backend_.sdo_write(simulated_node, index, sub_index, value_), "a download failed");
    });
    std::cout << ",\n";
    compare("interface/operation sdo_read", ping_pong,
            [this] { require(run(read_), "an operation failed"); });
    std::cout << ",\n";
    compare("interface/RPDO send, backend", send, [this] {
      require(backend_.send_rpdo(simulated_node, 1, image_, 8), "an RPDO was not sent");
    });
    std::cout << ",\n";
    compare("interface/operation pdo_write", send,
            [this] { require(run(write_rpdo_), "an RPDO was not sent"); });
    std::cout << "\n]\n";
  }

 private:
  bool run(const OperationConfig& op) {
    return controller_.execute_configured_operation(op, "", payload_).ok;
  }

  SocketCanChannel channel_;
  CanBusBackend backend_{channel_};
  const std::uint8_t node_id_ = simulated_node;
  BoardConfig board_;
  CanOpenNodeController controller_{node_id_, backend_, board_};
  const RawSocket raw_;
  const RawSocket raw_sender_;
  const can_frame request_ = raw_frame(0x600 + raw_node, 0x40);
  const can_frame raw_rpdo_ = raw_frame(0x200 + raw_node, 1);
  const OperationConfig read_ = every_object_op("sdo_read", index);
  OperationConfig write_rpdo_ = field_by_name_op();
  const std::vector<std::uint8_t> payload_{1, 2};
  const std::vector<std::uint8_t> value_{1, 2, 3, 4};
  const std::array<std::uint8_t, 8> image_{1, 2, 3, 4, 5, 6, 7, 8};
  std::vector<std::uint8_t> data_;
};

int run() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing sets variables meanwhile
  const char* const name = std::getenv("VELMORA_CAN_INTERFACE");
  require(name != nullptr, "VELMORA_CAN_INTERFACE is not set; see tools/vcan/run");
  const std::string interface = name;
  stay_on_one_processor();
  const Process raw([&] { serve_raw(interface); });
  const Process simulated([&] { serve_simulated(interface); });
  InterfaceBench(interface).run_all();
  return 0;
}

}  // namespace
}  // namespace velmora_can_bridge

int main() {
  try {
    return velmora_can_bridge::run();
  } catch (const std::exception& error) {
    std::cerr << "velmora_can_bridge_interface_bench: " << error.what() << std::endl;
    return 1;
  }
}
