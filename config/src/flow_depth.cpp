#include "flow_depth.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace velmora_can_bridge {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

bool is_one_of(char character, std::string_view characters) {
  return characters.find(character) != std::string_view::npos;
}

/// Walks over the tokens of a text as YAML's grammar has them (YAML 1.2, chapters 6 to 8), as far
/// as it takes to know which bracket opens something.
class FlowScan {
 public:
  explicit FlowScan(std::string_view text) : text_(text) {
    if (text.substr(0, byte_order_mark.size()) == byte_order_mark) {
      position_ = line_start_ = byte_order_mark.size();
    }
  }

  /// Bytes up to the first bracket that is more than `limit` deep.
  std::optional<std::size_t> find_deeper_than(std::size_t limit) {
    skip_to_token();
    while (position_ < text_.size()) {
      take_token();
      if (depth_ > limit) {
        return position_;
      }
      skip_to_token();
    }
    return {};
  }

 private:
  char peek(std::size_t ahead = 0) const {
    return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\n';
  }
  bool blank_follows(std::size_t ahead) const { return is_one_of(peek(ahead), " \t\r\n"); }
  bool in_flow() const { return depth_ != 0; }
  std::size_t column() const { return position_ - line_start_; }
  /// The column that whatever belongs to the innermost block stands behind at least.
  std::size_t inner_indent() const { return indents_.empty() ? 0 : indents_.back() + 1; }

  void advance() {
    if (text_[position_++] == '\n') {
      line_start_ = position_;
      key_column_.reset();
    }
  }
  void skip_line() { position_ = std::min(text_.find('\n', position_), text_.size()); }
  void skip_while(std::string_view characters) {
    while (position_ < text_.size() && is_one_of(text_[position_], characters)) {
      advance();
    }
  }
  void skip_until(std::string_view characters) {
    position_ = std::min(text_.find_first_of(characters, position_), text_.size());
  }

  void skip_to_token() {
    skip_while(" \t\r\n");
    while (position_ < text_.size() && text_[position_] == '#') {
      skip_line();
      skip_while(" \t\r\n");
    }
  }

  void take_token() {
    if (take_document_mark()) {
      return;
    }
    if (!in_flow()) {
      while (!indents_.empty() && indents_.back() > column()) {
        indents_.pop_back();
      }
    }
    const bool follows_json = std::exchange(follows_json_, false);
    if (take_bracket() || take_indicator(follows_json)) {
      return;
    }
    note_key();
    take_scalar();
  }

  bool take_document_mark() {
    if (column() != 0) {
      return false;
    }
    if (peek() == '%') {
      skip_line();
      return true;
    }
    const std::string_view mark = text_.substr(position_, 3);
    if ((mark != "---" && mark != "...") || !blank_follows(3)) {
      return false;
    }
    position_ += mark.size();
    indents_.clear();
    return true;
  }

  bool take_bracket() {
    if (is_one_of(peek(), "[{")) {
      note_key();
      ++depth_;
    } else if (is_one_of(peek(), "]}")) {
      depth_ -= in_flow() ? 1U : 0U;
      follows_json_ = true;
    } else {
      return false;
    }
    ++position_;
    return true;
  }

  /// "-", "?", ":" and ",", where they are no part of a text.
  bool take_indicator(bool follows_json) {
    if (is_value_mark(follows_json)) {
      open_block(key_column_.value_or(column()));
      key_column_.reset();
    } else if (is_one_of(peek(), "-?") && blank_follows(1)) {
      open_block(column());
    } else if (peek() != ',') {
      return false;
    }
    ++position_;
    return true;
  }

  bool is_value_mark(bool follows_json) const {
    if (peek() != ':') {
      return false;
    }
    return blank_follows(1) || (in_flow() && (follows_json || is_one_of(peek(1), ",]}")));
  }

  void open_block(std::size_t column) {
    if (!in_flow() && column >= inner_indent()) {
      indents_.push_back(column);
    }
  }

  /// What begins here may turn out to be a key.
  void note_key() {
    if (!in_flow() && !key_column_) {
      key_column_ = column();
    }
  }

  void take_scalar() {
    switch (peek()) {
      case '"':
        take_double_quoted();
        break;
      case '\'':
        take_single_quoted();
        break;
      case '&':
      case '*':
      case '!':
        skip_until(" \t\r\n,[]{}");
        break;
      case '|':
      case '>':
        take_block_scalar();
        break;
      default:
        take_plain();
    }
  }

  void take_double_quoted() {
    ++position_;
    while (position_ < text_.size() && text_[position_] != '"') {
      position_ += text_[position_] == '\\' ? 1U : 0U;
      step();
    }
    step();
    follows_json_ = true;
  }

  void take_single_quoted() {
    ++position_;
    while (position_ < text_.size() && (text_[position_] != '\'' || peek(1) == '\'')) {
      position_ += text_[position_] == '\'' ? 1U : 0U;
      step();
    }
    step();
    follows_json_ = true;
  }

  void step() {
    if (position_ < text_.size()) {
      advance();
    }
  }

  /// Its lines stand further in than the block that it belongs to, and as far in as the first.
  void take_block_scalar() {
    if (in_flow()) {
      ++position_;
      return;
    }
    const std::size_t end_of_line = std::min(text_.find('\n', position_), text_.size());
    const std::string_view header = text_.substr(position_, end_of_line - position_);
    const std::size_t digit = header.substr(0, 3).find_first_of("123456789");
    const bool is_given = digit != std::string_view::npos;
    const std::size_t outer = indents_.empty() ? 0 : indents_.back();
    std::size_t indent = outer + (is_given ? static_cast<std::size_t>(header[digit] - '0') : 1);
    bool is_first = !is_given;
    skip_line();
    while (position_ < text_.size()) {
      advance();
      skip_while(" ");
      if (position_ < text_.size() && is_one_of(text_[position_], "\r\n")) {
        skip_line();
        continue;
      }
      if (std::exchange(is_first, false)) {
        indent = std::max(indent, column());
      }
      if (column() < indent) {
        return;
      }
      skip_line();
    }
  }

  /// Goes on over lines that stand further in than the block that it belongs to.
  void take_plain() {
    const std::size_t indent = in_flow() ? 0 : inner_indent();
    do {
      take_plain_line();
      if (peek() != '\n' && peek() != '\r') {
        return;
      }
      skip_while(" \t\r\n");
    } while (position_ < text_.size() && peek() != '#' && column() >= indent && !ends_plain() &&
             !is_document_mark());
  }

  void take_plain_line() {
    // The first character is part of the text whatever it is.
    bool is_first = true;
    while (position_ < text_.size() && text_[position_] != '\n') {
      const bool begins_comment = is_one_of(text_[position_], " \t") && peek(1) == '#';
      if (begins_comment || (!std::exchange(is_first, false) && ends_plain())) {
        return;
      }
      ++position_;
    }
  }

  bool is_document_mark() const {
    const std::string_view mark = text_.substr(position_, 3);
    return column() == 0 && (mark == "---" || mark == "...") && blank_follows(3);
  }

  bool ends_plain() const {
    if (in_flow() && is_one_of(peek(), ",?[]{}")) {
      return true;
    }
    return peek() == ':' && (blank_follows(1) || (in_flow() && is_one_of(peek(1), ",]}")));
  }

  const std::string_view text_;
  std::size_t position_ = 0;
  std::size_t line_start_ = 0;
  /// Open brackets.
  std::size_t depth_ = 0;
  /// Columns of the block lists and maps that enclose the position, growing.
  std::vector<std::size_t> indents_;
  /// Where what may be a key of a block map begins, on this line.
  std::optional<std::size_t> key_column_;
  /// The last token was a quoted text or ended with a bracket: a ":" behind it needs no blank.
  bool follows_json_ = false;
};

}  // namespace

std::optional<std::size_t> find_deep_flow(std::string_view text, std::size_t limit) {
  return FlowScan(text).find_deeper_than(limit);
}

}  // namespace velmora_can_bridge
