#include "node_model.hpp"

#include <algorithm>
#include <utility>

namespace velmora_can_bridge::soak {

void Cell::begin_write(const Bytes& value) {
  if (std::find(possible_.begin(), possible_.end(), value) == possible_.end()) {
    possible_.push_back(value);
  }
}

void Cell::begin_write(const Cell& other) {
  for (const Bytes& value : other.possible_) {
    begin_write(value);
  }
}

/// All cells take as much memory from the beginning on; what a long trouble has taken is given
/// back.
void Cell::confirm(const Bytes& value) {
  if (possible_.capacity() != usual_values) {
    std::vector<Bytes> fresh;
    fresh.reserve(usual_values);
    possible_.swap(fresh);
  }
  possible_.assign(1, Bytes(value.begin(), value.end()));
}

bool Cell::may_hold(const Bytes& value, bool has_restarted) const {
  return (has_restarted && value == start_) ||
         std::find(possible_.begin(), possible_.end(), value) != possible_.end();
}

std::string Cell::text() const {
  constexpr std::size_t most = 6;
  std::string text;
  const std::size_t skipped = possible_.size() - std::min(possible_.size(), most);
  for (std::size_t each = skipped; each < possible_.size(); ++each) {
    text += (text.empty() ? "" : " or ") + text_of(possible_[each]);
  }
  return text + (skipped == 0 ? "" : " or an earlier one");
}

std::string text_of(const Bytes& bytes) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text.empty() ? "no bytes" : text;
}

SoakNode::SoakNode(std::uint8_t node_id, const BoardConfig& board, std::uint32_t first_sequence)
    : id(node_id), node(node_id, board) {
  add_objects(node.device());
  sequences.fill(first_sequence);
}

SoakNode::Moment SoakNode::moment() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {troubles_, is_sure_};
}

bool SoakNode::is_sure_since(const Moment& moment) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return moment.is_sure && is_sure_ && troubles_ == moment.troubles;
}

std::optional<Time> SoakNode::sure_since() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_sure_ ? std::make_optional(sure_since_) : std::nullopt;
}

void SoakNode::begin_trouble(Harm harm) {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++troubles_;
  ++active_;
  is_sure_ = false;
  has_restarted_ = has_restarted_ || harm == Harm::restart;
  needs_images_ = needs_images_ || harm != Harm::in_use;
}

void SoakNode::end_trouble(Time quiet) {
  const std::lock_guard<std::mutex> lock(mutex_);
  --active_;
  quiet_ = std::max(quiet_, quiet);
}

bool SoakNode::is_troubled() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return !is_sure_;
}

bool SoakNode::can_settle(Time now) const { return unsettled(now) > std::chrono::nanoseconds(0); }

std::chrono::nanoseconds SoakNode::unsettled(Time now) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_sure_ || active_ != 0 ? std::chrono::nanoseconds(0) : now - quiet_;
}

bool SoakNode::settle(const Moment& begun) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (troubles_ != begun.troubles || active_ != 0) {
    return false;
  }
  is_sure_ = true;
  sure_since_ = Clock::now();
  has_restarted_ = false;
  needs_images_ = false;
  return true;
}

}  // namespace velmora_can_bridge::soak
