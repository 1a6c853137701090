// Random boards and operations against a model of the frame: every bus call must be the one that
// the model expects, every frame the model's.
#include <deque>
#include <map>
#include <optional>
#include <random>

#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  std::size_t below(std::size_t limit) { return engine_() % limit; }
  bool one_in(std::size_t chances) { return below(chances) == 0; }
  std::uint8_t byte() { return static_cast<std::uint8_t>(below(256)); }

  Bytes bytes(std::size_t most) {
    Bytes random(below(most + 1));
    for (std::uint8_t& each : random) {
      each = byte();
    }
    return random;
  }

  template <typename Value>
  Value pick(std::initializer_list<Value> values) {
    return *(values.begin() + below(values.size()));
  }

 private:
  std::mt19937 engine_;
};

// --- the bus: random answers, all of them noted ---

enum class Outcome { accepted, refused, thrown };

struct BusCall {
  std::string text;
  Outcome outcome;
  Bytes answer;
};

class RandomBackend : public CanOpenBackend {
 public:
  explicit RandomBackend(Random& random) : random_(random) {}

  std::deque<BusCall> calls;

  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t index, std::uint8_t sub_index,
                Bytes& data) override {
    data = random_.bytes(9);
    return note(read_text(index, sub_index), data);
  }

  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t index, std::uint8_t sub_index,
                 const Bytes& data) override {
    return note(write_text(index, sub_index, data), {});
  }

  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const Frame& data,
                 std::uint8_t length) override {
    return note(ScriptedBackend::rpdo_text(node_id, rpdo, data, length), {});
  }

  static std::string read_text(unsigned index, unsigned sub_index) {
    return "read " + std::to_string(index) + "/" + std::to_string(sub_index);
  }

  static std::string write_text(unsigned index, unsigned sub_index, const Bytes& data) {
    return "write " + std::to_string(index) + "/" + std::to_string(sub_index) + " " +
           testing::PrintToString(data);
  }

 private:
  bool note(std::string text, Bytes answer) {
    const Outcome outcome = random_.one_in(40)   ? Outcome::thrown
                            : random_.one_in(12) ? Outcome::refused
                                                 : Outcome::accepted;
    calls.push_back({std::move(text), outcome, std::move(answer)});
    if (outcome == Outcome::thrown) {
      throw BusException();
    }
    return outcome == Outcome::accepted;
  }

  Random& random_;
};

// --- the model ---

struct ModelImage {
  Frame frame{};
  std::uint8_t length = 0;
  bool synced = false;
};

/// A field and the byte of the frame at which it begins.
struct Field {
  const PdoMapping* mapping;
  std::size_t begin;

  std::size_t end() const { return begin + mapping->bit_length / 8U; }
};

bool is_set(unsigned byte, unsigned bit) { return ((byte >> bit) & 1U) != 0; }

class Model {
 public:
  explicit Model(const BoardConfig& board) : board_(board) {}

  /// What the operation must answer, given how the bus answered; consumes the calls that it must
  /// have made. Throws what the bus threw.
  bool run(const OperationConfig& op, const Bytes& payload, std::deque<BusCall>& calls) {
    calls_ = &calls;
    if (op.kind == "od_io_write") {
      return io_write(payload);
    }
    const std::uint8_t rpdo = op.pdo_number != 0 ? op.pdo_number : rpdo_of(op.index);
    if (op.kind == "bit_patch" || op.kind == "pdo_bit_patch") {
      return patch_bits(op, rpdo, payload);
    }
    if (rpdo == 0 || !prepare(rpdo, op.refresh_shadow != 0)) {
      return false;
    }
    return (op.fields.empty() ? write_one(op, rpdo, payload) : write_all(op, rpdo, payload)) &&
           send(rpdo);
  }

  void forget() {
    for (auto& [rpdo, image] : images_) {
      image.synced = false;
      image.frame.fill(0);
    }
  }

 private:
  /// The fields of each entry of the number, or of all RPDOs, in order.
  std::vector<std::pair<std::uint8_t, std::vector<Field>>> entries(
      std::optional<std::uint8_t> rpdo) const {
    std::vector<std::pair<std::uint8_t, std::vector<Field>>> found;
    for (const PdoConfig& pdo : board_.pdos) {
      if (pdo.direction != "RPDO" || (rpdo && pdo.number != *rpdo)) {
        continue;
      }
      found.push_back({pdo.number, {}});
      std::size_t begin = 0;
      for (const PdoMapping& mapping : pdo.mappings) {
        found.back().second.push_back({&mapping, begin});
        begin += mapping.bit_length / 8U;
      }
    }
    return found;
  }

  template <typename Wanted>
  static std::optional<Field> first(const std::vector<Field>& fields, const Wanted& wanted) {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return wanted(*field.mapping); });
    return found == fields.end() ? std::nullopt : std::make_optional(*found);
  }

  /// As the lookups by name do: in the first entry of the number alone.
  std::optional<Field> named(std::uint8_t rpdo, const std::string& name) const {
    const auto all = entries(rpdo);
    return all.empty() ? std::nullopt : first(all.front().second, [&](const PdoMapping& mapping) {
      return mapping.field == name;
    });
  }

  std::uint8_t rpdo_of(std::uint16_t index) const {
    for (const auto& [number, fields] : entries(std::nullopt)) {
      if (number != 0 &&
          first(fields, [&](const PdoMapping& mapping) { return mapping.index == index; })) {
        return number;
      }
    }
    return 0;
  }

  BusCall expect(const std::string& text) {
    if (calls_->empty()) {
      ADD_FAILURE() << "missing: " << text;
      return {text, Outcome::refused, {}};
    }
    BusCall call = calls_->front();
    calls_->pop_front();
    EXPECT_EQ(call.text, text);
    if (call.outcome == Outcome::thrown) {
      throw BusException();
    }
    return call;
  }

  /// Puts the field's answer into the frame; false when it was refused.
  bool load_field(const Field& field, Frame& frame) {
    if (field.begin >= 8 || field.begin == field.end()) {
      return true;
    }
    Bytes bytes;
    if (field.mapping->index == 0 || field.mapping->index > 7) {
      const BusCall call =
          expect(RandomBackend::read_text(field.mapping->index, field.mapping->sub_index));
      if (call.outcome == Outcome::refused) {
        return false;
      }
      bytes = call.answer;
    }
    bytes.resize(std::max(bytes.size(), field.end() - field.begin));  // with zeros
    store(field, bytes, frame);
    return true;
  }

  static void store(const Field& field, const Bytes& bytes, Frame& frame) {
    for (std::size_t byte = field.begin; byte < std::min<std::size_t>(field.end(), 8); ++byte) {
      if (byte - field.begin < bytes.size()) {
        frame[byte] = bytes[byte - field.begin];
      }
    }
  }

  bool load(std::uint8_t rpdo, bool all_or_nothing) {
    ModelImage& image = images_[rpdo];
    Frame frame = image.frame;
    std::size_t length = 0;
    for (const auto& [number, fields] : entries(rpdo)) {
      std::size_t bits = 0;
      for (const Field& field : fields) {
        bits += field.mapping->bit_length;
        if (!load_field(field, frame) && all_or_nothing) {
          return false;
        }
      }
      length = std::max(length, std::min<std::size_t>((bits + 7) / 8, 8));
    }
    image = {frame, static_cast<std::uint8_t>(length), true};
    return true;
  }

  bool prepare(std::uint8_t rpdo, bool refresh) {
    if (refresh) {
      return load(rpdo, false);
    }
    return images_[rpdo].synced || entries(rpdo).empty() || load(rpdo, true);
  }

  bool send(std::uint8_t rpdo) {
    const ModelImage& image = images_[rpdo];
    return expect(ScriptedBackend::rpdo_text(5, rpdo, image.frame, image.length)).outcome ==
           Outcome::accepted;
  }

  bool io_write(const Bytes& payload) {
    const auto index = static_cast<std::uint16_t>(payload[0] | payload[1] << 8);
    const Bytes data(payload.begin() + 3, payload.end());
    for (const auto& [rpdo, fields] : entries(std::nullopt)) {
      const auto field = first(fields, [&](const PdoMapping& mapping) {
        return mapping.index == index && mapping.sub_index == payload[2];
      });
      if (field) {
        if (!prepare(rpdo, false)) {
          return false;
        }
        store(*field, data, images_[rpdo].frame);
        return send(rpdo);
      }
    }
    return expect(RandomBackend::write_text(index, payload[2], data)).outcome == Outcome::accepted;
  }

  bool write_one(const OperationConfig& op, std::uint8_t rpdo, const Bytes& payload) {
    std::optional<Field> field = named(rpdo, op.field);
    if (op.field.empty()) {
      field.reset();
      for (const auto& [number, fields] : entries(rpdo)) {
        field = field ? field : first(fields, [&](const PdoMapping& mapping) {
          return mapping.index == op.index && mapping.sub_index == op.sub_index;
        });
      }
    }
    if (field) {
      store(*field, payload, images_[rpdo].frame);
    }
    return field.has_value();
  }

  bool write_all(const OperationConfig& op, std::uint8_t rpdo, Bytes rest) {
    for (const std::string& name : op.fields) {
      const std::optional<Field> field = named(rpdo, name);
      if (!field) {
        return false;
      }
      const std::size_t length = field->end() - field->begin;
      if (length > rest.size()) {
        return op.kind == "pdo_patch";
      }
      const auto cut = rest.begin() + static_cast<std::ptrdiff_t>(length);
      store(*field, Bytes(rest.begin(), cut), images_[rpdo].frame);
      rest.erase(rest.begin(), cut);
    }
    return true;
  }

  bool patch_bits(const OperationConfig& op, std::uint8_t rpdo, const Bytes& payload) {
    const bool one_bit = op.kind == "pdo_bit_patch";
    const std::optional<Field> field = named(rpdo, op.fields[0]);
    if (!field || field->end() != field->begin + 1 || field->begin >= 8 ||
        !prepare(rpdo, one_bit && op.refresh_shadow != 0)) {
      return false;
    }
    std::uint8_t& byte = images_[rpdo].frame[field->begin];
    for (unsigned bit = 0; bit < 8; ++bit) {
      const bool selected = one_bit ? payload[1] == bit : is_set(payload[0], bit);
      const bool set = one_bit ? payload[2] == 1 : is_set(payload[1], bit);
      if (selected) {
        byte = static_cast<std::uint8_t>(set ? byte | (1U << bit) : byte & ~(1U << bit));
      }
    }
    if (op.transport != "sdo" || !one_bit) {
      return send(rpdo);
    }
    return expect(
               RandomBackend::write_text(field->mapping->index, field->mapping->sub_index, {byte}))
               .outcome == Outcome::accepted;
  }

  const BoardConfig& board_;
  std::map<std::uint8_t, ModelImage> images_;
  std::deque<BusCall>* calls_ = nullptr;
};

// --- random boards and operations ---

std::string random_name(Random& random) {
  return random.pick({"", "a", "a", "b", "b", "c", "d", "e"});
}

std::uint16_t random_index(Random& random) {
  return static_cast<std::uint16_t>(
      random.pick({0x0000, 0x0001, 0x0007, 0x0008, 0x2000, 0x2001, 0x2002}));
}

BoardConfig random_board(Random& random) {
  BoardConfig board{{}, {{"io", {"io", 0, 0}}}};
  for (std::size_t pdos = 1 + random.below(5); pdos > 0; --pdos) {
    PdoConfig pdo{static_cast<std::uint8_t>(random.pick({0, 1, 1, 1, 2, 2, 3})),
                  random.one_in(8) ? "TPDO" : "RPDO",
                  0,
                  {}};
    for (std::size_t mappings = random.below(8); mappings > 0; --mappings) {
      const int bits = random.pick({0, 1, 7, 8, 8, 8, 8, 9, 15, 16, 16, 24, 32, 64, 255});
      pdo.mappings.push_back({random_index(random), static_cast<std::uint8_t>(random.below(2)),
                              static_cast<std::uint8_t>(bits), random_name(random)});
    }
    board.pdos.push_back(std::move(pdo));
  }
  return board;
}

OperationConfig random_operation(Random& random) {
  OperationConfig op;
  op.kind = random.pick({"pdo_write", "pdo_patch", "od_io_write", "bit_patch", "pdo_bit_patch"});
  op.pdo_number = static_cast<std::uint8_t>(random.pick({0, 1, 1, 1, 2, 2, 3, 4}));
  op.index = random_index(random);
  op.sub_index = static_cast<std::uint8_t>(random.below(2));
  op.refresh_shadow = random.one_in(5) ? 1 : 0;
  const bool bits = op.kind == "bit_patch" || op.kind == "pdo_bit_patch";
  if (bits || random.one_in(2)) {
    for (std::size_t fields = 1 + random.below(3); fields > 0; --fields) {
      op.fields.push_back(random_name(random));
    }
  }
  op.field = random_name(random);
  op.transport = op.kind == "pdo_bit_patch" && random.one_in(4) ? "sdo" : "";
  return op;
}

Bytes random_payload(Random& random, const OperationConfig& op) {
  Bytes payload = random.bytes(12);
  if (op.kind == "od_io_write") {
    const std::uint16_t index = random_index(random);
    payload.insert(payload.begin(), {static_cast<std::uint8_t>(index & 0xFFU),
                                     static_cast<std::uint8_t>(index >> 8U),
                                     static_cast<std::uint8_t>(random.below(2))});
  } else if (op.kind == "bit_patch") {
    payload = {random.byte(), random.byte()};
  } else if (op.kind == "pdo_bit_patch") {
    payload = {1, static_cast<std::uint8_t>(random.below(8)),
               static_cast<std::uint8_t>(random.below(2))};
  }
  return payload;
}

/// How `operation` ends.
template <typename Operation>
std::string outcome_of(const Operation& operation) {
  try {
    return operation() ? "ok" : "failed";
  } catch (const BusException& exception) {
    return exception.what();
  }
}

/// Runs operations on one board until one is not as the model has it; answers the frames sent.
std::size_t run_board(Random& random) {
  const BoardConfig board = random_board(random);
  const std::uint8_t node_id = 5;
  RandomBackend backend(random);
  CanOpenNodeController controller(node_id, backend, board);
  Model model(board);
  std::size_t sends = 0;
  for (int step = 0; step < 60 && !testing::Test::HasFailure(); ++step) {
    SCOPED_TRACE(step);
    if (random.one_in(15)) {
      controller.forget_rpdo_shadows();
      model.forget();
    }
    const OperationConfig op = random_operation(random);
    const Bytes payload = random_payload(random, op);
    SCOPED_TRACE(op.kind);
    const std::string outcome =
        outcome_of([&] { return controller.execute_configured_operation(op, "io", payload).ok; });
    for (const BusCall& call : backend.calls) {
      sends += call.text.rfind("rpdo", 0) == 0 ? 1U : 0U;
    }
    EXPECT_EQ(outcome, outcome_of([&] { return model.run(op, payload, backend.calls); }));
    EXPECT_TRUE(backend.calls.empty()) << "surplus: " << backend.calls.front().text;
    backend.calls.clear();
  }
  return sends;
}

TEST(RpdoProperty, random_operations_on_random_boards_make_the_calls_of_the_model) {
  for (const unsigned seed : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U, 55U, 89U}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    std::size_t sends = 0;
    for (int boards = 0; boards < 40 && !testing::Test::HasFailure(); ++boards) {
      SCOPED_TRACE("board " + std::to_string(boards));
      sends += run_board(random);
    }
    if (testing::Test::HasFailure()) {
      return;
    }
    EXPECT_GT(sends, 100U) << "too few to mean anything";
  }
}

}  // namespace
}  // namespace velmora_can_bridge
