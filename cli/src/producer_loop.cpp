#include "producer_loop.hpp"

#include <algorithm>
#include <chrono>
#include <ostream>
#include <thread>
#include <utility>

#include "exit_status.hpp"
#include "ground/visible_text.hpp"
#include "interface_channel.hpp"
#include "json_line.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

// How long an interruption may go unnoticed.
constexpr std::chrono::milliseconds longest_nap{100};

/// Whether there is nothing to send on, when the very first frame shows it.
bool is_useless(const BusError& error) {
  return error.status == CanStatus::interface_missing ||
         error.status == CanStatus::interface_down || error.status == CanStatus::failed;
}

}  // namespace

ProducerLoop::ProducerLoop(const CommandLineHost& host, CanChannel& channel,
                           PeriodicProducer& producer, ProducerLoopSettings settings)
    : host_(&host),
      producer_(&producer),
      settings_(std::move(settings)),
      endpoint_(channel.open({})) {}

ExitStatus ProducerLoop::run() {
  if (is_interrupted(*host_)) {
    return finish(ExitStatus::interrupted);
  }
  if (const std::optional<BusError> error = poll(); error && is_useless(*error)) {
    return settings_.json ? finish(exit_status_of(*error)) : exit_status_of(*error);
  }
  print_start();
  while (!settings_.count || sent_ < *settings_.count) {
    if (is_interrupted(*host_)) {
      return finish(ExitStatus::interrupted);
    }
    wait();
    poll();
  }
  return finish(ExitStatus::success);
}

std::optional<BusError> ProducerLoop::poll() {
  std::optional<BusError> error = producer_->poll();
  if (error) {
    ++not_sent_;
    note(error->status, error->text);
  } else if (producer_->sent() != sent_) {
    note(CanStatus::ok, endpoint_->explain(CanStatus::ok));
  }
  sent_ = producer_->sent();
  return error;
}

/// Tells how the interface is, each time that this changes.
void ProducerLoop::note(CanStatus status, const std::string& text) {
  if (status != state_) {
    state_ = status;
    print_diagnostic(*host_, text);
    host_->err.flush();
  }
}

void ProducerLoop::wait() const {
  const nanoseconds left = producer_->next() - endpoint_->now();
  std::this_thread::sleep_for(std::min<nanoseconds>(left, longest_nap));
}

void ProducerLoop::print_start() const {
  if (!settings_.json) {
    host_->out << "sending " << visible_text(settings_.what) << "; Ctrl-C ends it" << std::endl;
  }
}

ExitStatus ProducerLoop::finish(ExitStatus status) const {
  if (settings_.json) {
    print_json_line(*host_, {{"sent", sent_},
                             {"not_sent", not_sent_},
                             {"ok", status == ExitStatus::success},
                             {"code", exit_status_word(status)}});
  } else {
    host_->out << "sent " << sent_ << (sent_ == 1 ? " frame" : " frames");
    host_->out << (not_sent_ == 0 ? "" : ", failed to send " + std::to_string(not_sent_)) << '\n';
  }
  return status;
}

}  // namespace velmora_can_bridge
