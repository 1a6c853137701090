#include <algorithm>
#include <chrono>
#include <thread>

#include "commands.hpp"
#include "exit_status.hpp"
#include "interface_channel.hpp"
#include "report.hpp"
#include "velmora_can_bridge/traffic/traffic_decoder.hpp"
#include "velmora_can_bridge/traffic/traffic_text.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

// How long an interruption may go unnoticed.
constexpr std::chrono::milliseconds longest_wait{100};
// Between two receives that both fail at once.
constexpr std::chrono::milliseconds trouble_pause{10};
constexpr double longest_watch = 1e9;

/// One run of the command.
class Watch {
 public:
  Watch(const CommandLineHost& host, const WatchArguments& arguments, const BoardFile& file,
        CanChannel& channel)
      : host_(&host),
        json_(arguments.json),
        decoder_(file),
        endpoint_(channel.open({{0, 0}})),
        start_(endpoint_->now()),
        length_(arguments.seconds ? std::chrono::duration_cast<nanoseconds>(
                                        std::chrono::duration<double>(*arguments.seconds))
                                  : nanoseconds::max()) {}

  ExitStatus run();

 private:
  nanoseconds elapsed() const { return endpoint_->now() - start_; }
  static bool is_useless(CanStatus status);
  void handle(CanStatus status, const CanFrame& frame);
  void show(const CanFrame& frame);
  void note(CanStatus status);

  const CommandLineHost* const host_;
  const bool json_;
  TrafficDecoder decoder_;
  const std::unique_ptr<CanEndpoint> endpoint_;
  const std::chrono::steady_clock::time_point start_;
  const nanoseconds length_;
  // What the interface told last.
  CanStatus state_ = CanStatus::ok;
  bool has_failed_ = false;
};

ExitStatus Watch::run() {
  CanFrame frame;
  CanStatus status = endpoint_->receive(frame, nanoseconds(0));
  if (is_useless(status)) {
    print_diagnostic(*host_, endpoint_->explain(status));
    return exit_status_of(status);
  }
  for (;;) {
    handle(status, frame);
    if (!host_->out) {
      return ExitStatus::operation_failed;
    }
    if (is_interrupted(*host_)) {
      return ExitStatus::interrupted;
    }
    const nanoseconds left = length_ - elapsed();
    if (left <= nanoseconds(0)) {
      return ExitStatus::success;
    }
    status = endpoint_->receive(frame, std::min<nanoseconds>(left, longest_wait));
  }
}

/// Whether there is nothing to watch, when the very first receive says so.
bool Watch::is_useless(CanStatus status) {
  return status == CanStatus::interface_missing || status == CanStatus::interface_down ||
         status == CanStatus::failed;
}

void Watch::handle(CanStatus status, const CanFrame& frame) {
  if (status == CanStatus::timed_out) {
    has_failed_ = false;
    return;
  }
  note(status);
  const bool failed = status != CanStatus::ok;
  if (!failed) {
    show(frame);
  } else if (has_failed_) {
    std::this_thread::sleep_for(trouble_pause);
  }
  has_failed_ = failed;
}

void Watch::show(const CanFrame& frame) {
  const DecodedFrame decoded = decoder_.decode(frame);
  const auto* const heartbeat = std::get_if<HeartbeatContent>(&decoded.content);
  if (json_) {
    host_->out << traffic_json(elapsed(), decoded) << '\n';
  } else if (heartbeat == nullptr || heartbeat->has_changed ||
             decoded.kind == TrafficKind::boot_up) {
    host_->out << traffic_text(elapsed(), decoded) << '\n';
  }
  host_->out.flush();
}

/// Tells how the interface is, each time that this changes.
void Watch::note(CanStatus status) {
  if (status != state_) {
    state_ = status;
    print_diagnostic(*host_, endpoint_->explain(status));
  }
}

}  // namespace

ExitStatus watch_command(const CommandLineHost& host, const WatchArguments& arguments) {
  const bool has_length = arguments.seconds.has_value();
  // Written so that what is no number at all is refused as well.
  if (has_length && !(*arguments.seconds >= 0 && *arguments.seconds <= longest_watch)) {
    print_diagnostic(host, "--for: expected 0 to 1000000000 seconds");
    return ExitStatus::bad_input;
  }
  const std::optional<BoardFile> file = load_board(host, arguments.board);
  if (!file) {
    return ExitStatus::bad_input;
  }
  if (!is_interface(host, arguments.bus)) {
    return ExitStatus::bad_input;
  }
  const std::unique_ptr<CanChannel> channel = interface_channel(host, arguments.bus);
  return Watch(host, arguments, *file, *channel).run();
}

}  // namespace velmora_can_bridge
