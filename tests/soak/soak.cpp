// soak SECONDS [SEED [INTERFACE]]: many threads on 127 simulated nodes that are disturbed in every
// way, on a bus inside the process or on a CAN interface, which this program takes down and up.
//
// Exits with 1 when something was wrong, and tells the seed that makes the same choices again.
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "disturbed_channel.hpp"
#include "frame_check.hpp"
#include "soak_board.hpp"
#include "trouble_maker.hpp"
#include "velmora_can_bridge/bridge/bridge_runner.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"
#include "velmora_can_bridge/bus/sync_producer.hpp"
#include "velmora_can_bridge/simulator/simulated_node_server.hpp"
#include "worker.hpp"

namespace velmora_can_bridge::soak {
namespace {

using std::chrono::seconds;

struct Arguments {
  unsigned seconds = 60;
  std::uint32_t seed = 1 + std::random_device{}() % 99999;
  std::string interface {};
};

/// Ends the process when the soak does not end by itself: something hangs.
class Watchdog {
 public:
  explicit Watchdog(seconds limit, std::uint32_t seed)
      : thread_([this, limit, seed] {
          std::unique_lock<std::mutex> lock(mutex_);
          if (!ended_.wait_for(lock, limit, [this] { return is_over_; })) {
            std::cout << "WRONG: the soak hangs; seed " << seed << std::endl;
            std::_Exit(1);
          }
        }) {}
  ~Watchdog() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      is_over_ = true;
    }
    ended_.notify_all();
    thread_.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog(Watchdog&&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
  Watchdog& operator=(Watchdog&&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  bool is_over_ = false;
  std::thread thread_;
};

/// Lets simulated nodes answer, on a thread of its own.
class NodeThread {
 public:
  NodeThread(CanChannel& channel, const std::vector<std::unique_ptr<SoakNode>>& all, Pulse& pulse)
      : server_(channel, bus_nodes(all)), pulse_(&pulse) {
    server_.boot();
    thread_ = std::thread([this] { serve(); });
  }
  ~NodeThread() {
    is_ending_ = true;
    thread_.join();
  }
  NodeThread(const NodeThread&) = delete;
  NodeThread(NodeThread&&) = delete;
  NodeThread& operator=(const NodeThread&) = delete;
  NodeThread& operator=(NodeThread&&) = delete;

 private:
  static std::vector<SimulatedBusNode*> bus_nodes(
      const std::vector<std::unique_ptr<SoakNode>>& all) {
    std::vector<SimulatedBusNode*> pointers;
    pointers.reserve(all.size());
    for (const auto& node : all) {
      pointers.push_back(&node->node);
    }
    return pointers;
  }

  void serve() {
    while (!is_ending_) {
      server_.poll(milliseconds(5));
      pulse_->beat();
    }
  }

  SimulatedNodeServer server_;
  Pulse* const pulse_;
  std::atomic<bool> is_ending_{false};
  std::thread thread_;
};

/// Counts how many transfers later ones overtake.
class Turns {
 public:
  Turns(std::vector<std::unique_ptr<SoakNode>>& all, Report& report)
      : nodes_(&all), report_(&report) {}

  void begin(const Transfer& transfer) {
    if (transfer.kind != TransferKind::rpdo) {
      SoakNode& node = *nodes_->at(transfer.node_id - 1U);
      ended_before() = node.transfers_ended;
      ahead() = node.transfers_begun++ - ended_before();
    }
  }

  void end(const Transfer& transfer) {
    if (transfer.kind == TransferKind::rpdo) {
      return;
    }
    SoakNode& node = *nodes_->at(transfer.node_id - 1U);
    const std::uint32_t ended = node.transfers_ended++ - ended_before();
    if (ahead() == 0 || ahead() > threads || transfer.error) {
      return;
    }
    ++report_->waited;
    // One of each thread may have been between here and the queue.
    if (ended > ahead() + threads) {
      ++report_->overtaken;
      const std::uint32_t by = ended - ahead();
      std::uint32_t most = report_->most_overtaken;
      while (by > most && !report_->most_overtaken.compare_exchange_weak(most, by)) {
      }
    }
  }

 private:
  static std::uint32_t& ended_before() {
    static thread_local std::uint32_t count = 0;
    return count;
  }
  static std::uint32_t& ahead() {
    static thread_local std::uint32_t count = 0;
    return count;
  }

  std::vector<std::unique_ptr<SoakNode>>* const nodes_;
  Report* const report_;
};

/// Everything from the first endpoint to the last.
class Soak {
 public:
  Soak(const Arguments& arguments, CanChannel& channel, const NetworkSwitch& network,
       Report& report)
      : arguments_(arguments),
        report_(&report),
        faults_(arguments.seed, pace_.longest_delay),
        disturbed_(channel, faults_),
        sync_(channel, pace_.heartbeat / 2),
        nodes_(make_nodes(arguments.seed)),
        frame_check_(channel, nodes_, report),
        node_thread_(disturbed_, nodes_, pulse_),
        bridge_(disturbed_, soak_board(), settings()),
        runner_(bridge_),
        troubles_(world_, channel, faults_, network, arguments.seed) {
    bridge_.add_observer([this](const BridgeEvent& /*event*/) { ++report_->events; });
  }

  /// A third with troubles, all nodes made sure of, troubles again, and a calm tenth.
  void run() {
    set_heartbeats();
    bridge_.send(NmtCommand::start, 0);
    if (arguments_.interface.empty()) {
      troubles_.let_all_babble();
    }
    start_workers();
    settle_all();
    const Time begun = Clock::now();
    const milliseconds whole = seconds(arguments_.seconds);
    run_until(begun + whole / 3, true);
    settle_all();
    warm_ = Resources::now();
    run_until(begun + whole * 9 / 10, true);
    settle_all();
    run_until(std::max(begun + whole, Clock::now() + whole / 20), false);
    settle_all();
    end_ = Resources::now();
    world_.phase = Phase::end;
    for (std::thread& worker : workers_) {
      worker.join();
    }
    report_->print(std::cout);
    judge();
  }

 private:
  static std::vector<std::unique_ptr<SoakNode>> make_nodes(std::uint32_t seed) {
    std::vector<std::unique_ptr<SoakNode>> all;
    std::mt19937 random(seed);
    for (const NodeConfig& config : soak_board().nodes) {
      all.push_back(std::make_unique<SoakNode>(config.node_id, config.board, random()));
    }
    return all;
  }

  BridgeSettings settings() {
    BridgeSettings settings;
    settings.times = pace_.times();
    settings.heartbeat_timeout = pace_.heartbeat * 3;
    settings.before_transfer = [this](const Transfer& transfer) { turns_.begin(transfer); };
    settings.after_transfer = [this](const Transfer& transfer) { turns_.end(transfer); };
    return settings;
  }

  /// They keep their heartbeats over restarts.
  void set_heartbeats() {
    const Bytes time = bytes_of(static_cast<std::uint32_t>(pace_.heartbeat.count()), 2);
    for (const auto& node : nodes_) {
      const auto refused = node->node.device().sdo_download(0x1017, 0, time);
      const auto kept = node->node.device().sdo_download(0x1010, 1, {'s', 'a', 'v', 'e'});
      if (refused || kept) {
        report_->problem("a node takes no heartbeat time");
      }
    }
  }

  void start_workers() {
    world_.phase = Phase::settle;
    for (std::size_t thread = 0; thread < threads; ++thread) {
      workers_.emplace_back([this, thread] {
        Worker(world_, thread, arguments_.seed + static_cast<std::uint32_t>(thread)).run();
      });
    }
  }

  void run_until(Time end, bool has_troubles) {
    world_.phase = Phase::run;
    std::mt19937 random(arguments_.seed);
    Time next_crowd{};
    while (Clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(5));
      sync_.poll();
      if (has_troubles) {
        troubles_.step();
      }
      if (Clock::now() >= next_crowd) {
        next_crowd = Clock::now() + pace_.frame_timeout;
        world_.crowded_node = static_cast<std::uint8_t>(1 + random() % nodes);
      }
    }
    troubles_.end_all();
  }

  void settle_all() {
    const Time begun = Clock::now();
    world_.waiting_threads = 0;
    ++world_.round;
    world_.phase = Phase::settle;
    while (world_.waiting_threads < threads) {
      std::this_thread::sleep_for(milliseconds(5));
      sync_.poll();
    }
    report_->longest_settling.note(Clock::now() - begun);
    tell("all nodes made sure of");
  }

  /// How far it is, for who waits or looks why it hangs.
  void tell(const char* what) const {
    const auto passed = std::chrono::duration<double>(Clock::now() - begun_);
    std::cout << "soak: " << std::fixed << std::setprecision(1) << passed.count() << " s: " << what
              << std::endl;
  }

  void judge() const {
    std::cout << "memory: " << warm_.heap_bytes / 1024 << " KiB of heap, "
              << warm_.resident_bytes / 1024 << " KiB resident after a third; "
              << end_.heap_bytes / 1024 << " KiB, " << end_.resident_bytes / 1024
              << " KiB at the end\n"
              << "descriptors and threads: " << warm_.descriptors << " and " << warm_.threads
              << " after a third, " << end_.descriptors << " and " << end_.threads
              << " at the end\n";
    if (end_.heap_bytes > warm_.heap_bytes + heap_tolerance) {
      report_->problem("the heap has grown");
    }
    // Each node has an endpoint for its transfers, and one more to wait for a quarantine's end from
    // the first such wait on.
    if (end_.descriptors > before_.descriptors + std::size_t{2} * nodes + other_endpoints) {
      report_->problem("too many descriptors are open");
    }
    if (end_.threads != warm_.threads) {
      report_->problem("threads are left");
    }
    if (report_->overtaken * 100 > report_->waited) {
      report_->problem("more than one transfer of a hundred was overtaken");
    }
  }

  static constexpr std::size_t other_endpoints = 12;
  // What each node and thread has of its own once it has met all troubles: a text of its last
  // error, a place for late answers, a queue of the largest size.
  static constexpr std::size_t heap_tolerance = std::size_t{512} * 1024;

  const Resources before_ = Resources::now();
  const Arguments arguments_;
  const Time begun_ = Clock::now();
  Report* const report_;
  const Pace pace_{arguments_.interface.empty() ? 1U : 3U};
  Faults faults_;
  DisturbedChannel disturbed_;
  SyncProducer sync_;
  Pulse pulse_{pace_.frame_timeout / 2};
  std::vector<std::unique_ptr<SoakNode>> nodes_;
  Turns turns_{nodes_, *report_};
  FrameCheck frame_check_;
  NodeThread node_thread_;
  Bridge bridge_;
  World world_{pace_, bridge_, nodes_, *report_, pulse_};
  const BridgeRunner runner_;
  TroubleMaker troubles_;
  std::vector<std::thread> workers_;
  Resources warm_;
  Resources end_;
};

void run_in_process(const Arguments& arguments, Report& report) {
  InProcessBus bus(BusTime::real);
  Soak(
      arguments, bus,
      [&](bool up) { bus.set_state(up ? CanStatus::ok : CanStatus::interface_down); }, report)
      .run();
}

void run_on_interface(const Arguments& arguments, Report& report) {
  SocketCanChannel channel(arguments.interface);
  const bool may_switch = ::geteuid() == 0;
  if (!may_switch) {
    std::cout << "soak: only root can take " << arguments.interface << " down: it stays up\n";
  }
  const auto network = [&](bool up) {
    if (!may_switch) {
      return;
    }
    const std::string command = "ip link set dev " + arguments.interface + (up ? " up" : " down");
    // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-env33-c): nothing else handles signals or children
    // here
    if (std::system(command.c_str()) != 0) {
      report.problem("failed: " + command);
    }
  };
  Soak(arguments, channel, network, report).run();
}

template <typename Number>
bool parse(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number != 0;
}

std::optional<Arguments> parse_arguments(const std::vector<std::string>& words) {
  Arguments arguments;
  const bool is_sound = words.size() <= 3 && !words.empty() && parse(words[0], arguments.seconds) &&
                        (words.size() < 2 || parse(words[1], arguments.seed));
  if (!is_sound) {
    return std::nullopt;
  }
  arguments.interface = words.size() == 3 ? words[2] : "";
  return arguments;
}

int run(const Arguments& arguments) {
  const bool is_in_process = arguments.interface.empty();
  std::cout << "soak: " << arguments.seconds << " s "
            << (is_in_process ? "in process" : "on " + arguments.interface) << ", seed "
            << arguments.seed << std::endl;
  const Resources before = Resources::now();
  Report report;
  {
    const Watchdog watchdog(seconds(arguments.seconds * 2 + 120), arguments.seed);
    (is_in_process ? run_in_process : run_on_interface)(arguments, report);
  }
  const Resources after = Resources::now();
  if (after.descriptors != before.descriptors || after.threads != before.threads) {
    report.problem("descriptors or threads are left: " + std::to_string(after.descriptors) +
                   " and " + std::to_string(after.threads) + ", before " +
                   std::to_string(before.descriptors) + " and " + std::to_string(before.threads));
  }
  report.print_problems(std::cout);
  if (!report.is_clean()) {
    std::cout << "soak: FAILED, seed " << arguments.seed << std::endl;
    return 1;
  }
  std::cout << "soak: nothing wrong" << std::endl;
  return 0;
}

}  // namespace
}  // namespace velmora_can_bridge::soak

int main(int count, char** words) {
  namespace soak = velmora_can_bridge::soak;
  try {
    const auto arguments = soak::parse_arguments({words + 1, words + count});
    if (!arguments) {
      std::cerr << "usage: soak SECONDS [SEED [INTERFACE]]" << std::endl;
      return 2;
    }
    return soak::run(*arguments);
  } catch (const std::exception& error) {
    std::cerr << "soak: " << error.what() << std::endl;
    return 1;
  }
}
