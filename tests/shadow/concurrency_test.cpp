#include <atomic>
#include <cstdlib>
#include <future>
#include <iostream>
#include <mutex>
#include <thread>

#include "support/patience.hpp"
#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

// --- SDO operations while an RPDO operation holds the image ---

/// Holds the first caller of send_rpdo until it is let go; any other call answers at once.
class HoldingBackend : public CanOpenBackend {
 public:
  std::promise<void> send_entered;
  std::promise<void> let_go;

  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                Bytes& data) override {
    data = {1};
    return true;
  }

  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const Bytes& /*data*/) override {
    return true;
  }

  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/, const Frame& /*data*/,
                 std::uint8_t /*length*/) override {
    send_entered.set_value();
    return is_done(let_go.get_future());
  }
};

struct SdoRow {
  const char* name;
  OperationConfig op;
  Bytes payload;
  OperationResult result;
};

void PrintTo(const SdoRow& row, std::ostream* out) { *out << row.name; }

OperationConfig sdo_operation(const char* kind, std::vector<std::string> fields = {},
                              const char* led_operation = "") {
  OperationConfig op;
  op.kind = kind;
  op.transport = "sdo";
  op.index = 0x2000;
  op.sub_index = 2;
  op.sub_indices = {1, 2};
  op.pdo_number = 1;
  op.fields = std::move(fields);
  op.led_operation = led_operation;
  return op;
}

OperationConfig unmapped(OperationConfig op) {
  op.transport = "";
  op.pdo_number = 0;
  op.index = 0x7777;
  return op;
}

class WhileAnRpdoIsSent : public ShadowTest, public testing::WithParamInterface<SdoRow> {
 protected:
  WhileAnRpdoIsSent() {
    op.kind = "pdo_write";
    op.pdo_number = 1;
    op.field = "byte";
  }

  HoldingBackend holding;
  CanOpenNodeController shared{node_id, holding, board};
};

TEST_P(WhileAnRpdoIsSent, sdo_operation_completes) {
  auto entered = holding.send_entered.get_future();
  auto writer = std::async(std::launch::async,
                           [&] { return shared.execute_configured_operation(op, "io", {1}); });
  const bool blocked = is_done(entered);
  auto reader = std::async(std::launch::async, [&] {
    return shared.execute_configured_operation(GetParam().op, "io", GetParam().payload);
  });
  const bool completed = is_done(reader);
  holding.let_go.set_value();

  EXPECT_TRUE(blocked);
  EXPECT_TRUE(completed);
  EXPECT_EQ(reader.get(), GetParam().result);
  EXPECT_EQ(writer.get(), ok("OK"));
}

INSTANTIATE_TEST_SUITE_P(
    Operations, WhileAnRpdoIsSent,
    testing::Values(
        SdoRow{"sdo_read", sdo_operation("sdo_read"), {}, ok("OK", {1})},
        SdoRow{"sdo_write", sdo_operation("sdo_write"), {1}, ok("OK")},
        SdoRow{"read_multi", sdo_operation("read_multi"), {}, ok("OK", {1, 1})},
        SdoRow{"od_io_read", sdo_operation("od_io_read"), {0, 0, 2}, ok("OK", {1})},
        SdoRow{"od_io_write", sdo_operation("od_io_write"), {0, 0, 2, 1}, ok("OK")},
        SdoRow{
            "od_io_write_unmapped", unmapped(sdo_operation("od_io_write")), {9, 9, 2, 1}, ok("OK")},
        SdoRow{"auto_write", sdo_operation("auto_write"), {1}, ok("OK")},
        SdoRow{"auto_write_unmapped", unmapped(sdo_operation("auto_write")), {1}, ok("OK")},
        SdoRow{"pdo_write_one_field", sdo_operation("pdo_write"), {1}, ok("OK (SDO)")},
        SdoRow{"pdo_write_several_fields",
               sdo_operation("pdo_write", {"byte", "flags"}),
               {1, 2},
               ok("OK (SDO)")},
        SdoRow{"pdo_patch", sdo_operation("pdo_patch", {"byte", "flags"}), {1}, ok("OK (SDO)")},
        SdoRow{"bit_patch", sdo_operation("bit_patch", {"byte"}), {1, 1}, ok("OK (SDO)")},
        SdoRow{"led_write",
               sdo_operation("led_write", {"word", "byte"}, "set_color"),
               {1, 2, 3},
               ok("OK (SDO)")},
        SdoRow{"refused_pdo_bit_patch",
               sdo_operation("pdo_bit_patch", {"word"}),
               {1, 0, 1},
               failed("pdo_bit_patch requires a single-byte RPDO field")},
        SdoRow{"refused_bit_patch",
               unmapped(sdo_operation("bit_patch", {"byte"})),
               {1, 1},
               failed("RPDO 0 not found")}),
    row_name);

// --- many writers of one RPDO ---

using Word = std::uint64_t;

Word word_of(const Frame& frame) {
  Word word = 0;
  for (std::size_t byte = 0; byte < frame.size(); ++byte) {
    word |= Word{frame[byte]} << (8 * byte);
  }
  return word;
}

/// A node that takes its RPDO into its objects, and notes every frame and every write. Lets other
/// threads run inside each call, and notes when two calls overlap that must not.
class NodeBackend : public CanOpenBackend {
 public:
  std::vector<Word> frames;
  std::vector<std::uint8_t> written;
  std::atomic<bool> overlapped{false};

  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t index, std::uint8_t /*sub_index*/,
                Bytes& data) override {
    const Call call(*this);
    data = Bytes(frame_.begin() + (index & 7U), frame_.end());
    return true;
  }

  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const Bytes& data) override {
    const Call call(*this);
    written.push_back(data.at(0));
    return true;
  }

  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/, const Frame& data,
                 std::uint8_t /*length*/) override {
    const Call call(*this);
    frame_ = data;
    frames.push_back(word_of(data));
    return true;
  }

 private:
  class Call {
   public:
    explicit Call(NodeBackend& node) : node_(node), lock_(node.mutex_, std::try_to_lock) {
      if (!lock_.owns_lock()) {
        node_.overlapped = true;
        lock_.lock();
      }
      std::this_thread::yield();
    }

   private:
    NodeBackend& node_;
    std::unique_lock<std::mutex> lock_;
  };

  std::mutex mutex_;
  Frame frame_{};
};

/// One thread's operations: each gives the bits of `mask` a value other than the one before.
struct Writer {
  OperationConfig op;
  Word mask;
  Bytes (*payload)(unsigned step);
  Word (*value)(unsigned step);
};

OperationConfig rpdo_operation(const char* kind, std::vector<std::string> fields,
                               std::uint8_t refresh_shadow = 0) {
  OperationConfig op;
  op.kind = kind;
  op.pdo_number = 1;
  op.fields = std::move(fields);
  op.refresh_shadow = refresh_shadow;
  op.led_operation = "set_color";
  return op;
}

std::uint8_t low_byte(unsigned step) { return static_cast<std::uint8_t>(step); }
std::uint8_t odd(unsigned step) { return static_cast<std::uint8_t>(step & 1U); }

/// One writer of each kind that goes through the image; several share a byte.
std::vector<Writer> writers() {
  OperationConfig by_object = rpdo_operation("auto_write", {});
  by_object.index = 0x2004;
  return {
      {rpdo_operation("bit_patch", {"mask"}), 0x0F,
       [](unsigned step) {
         return Bytes{0x0F, low_byte(step)};
       },
       [](unsigned step) { return Word{step & 0xFU}; }},
      {rpdo_operation("bit_patch", {"mask"}), 0xF0,
       [](unsigned step) {
         return Bytes{0xF0, low_byte(step << 4U)};
       },
       [](unsigned step) { return Word{step & 0xFU} << 4U; }},
      {rpdo_operation("pdo_bit_patch", {"bits"}), 0x0100,
       [](unsigned step) {
         return Bytes{1, 0, odd(step)};
       },
       [](unsigned step) { return Word{odd(step)} << 8U; }},
      {rpdo_operation("pdo_bit_patch", {"bits"}, 1), 0x8000,
       [](unsigned step) {
         return Bytes{1, 7, odd(step)};
       },
       [](unsigned step) { return Word{odd(step)} << 15U; }},
      {rpdo_operation("pdo_write", {"word"}), 0xFFFF0000,
       [](unsigned step) {
         return Bytes{low_byte(step), low_byte(~step)};
       },
       [](unsigned step) { return Word{low_byte(step)} << 16U | Word{low_byte(~step)} << 24U; }},
      {by_object, 0xFF00000000, [](unsigned step) { return Bytes{low_byte(step)}; },
       [](unsigned step) { return Word{low_byte(step)} << 32U; }},
      {rpdo_operation("od_io_write", {}), 0xFF0000000000,
       [](unsigned step) {
         return Bytes{5, 0, 0, low_byte(step)};
       },
       [](unsigned step) { return Word{low_byte(step)} << 40U; }},
      {rpdo_operation("led_write", {"low", "high", "none"}), 0xFFFF000000000000,
       [](unsigned step) {
         return Bytes{low_byte(step), low_byte(step), 0};
       },
       [](unsigned step) { return Word{low_byte(step)} << 48U | Word{low_byte(step)} << 56U; }},
  };
}

class ManyWriters : public testing::Test {
 protected:
  static constexpr unsigned steps = 100;

  ManyWriters() {
    // The last digit of an index is the field's byte.
    board.pdos = {{1,
                   "RPDO",
                   0,
                   {{0x2000, 0, 8, "mask"},
                    {0x2001, 0, 8, "bits"},
                    {0x2002, 0, 16, "word"},
                    {0x2004, 0, 8, "object"},
                    {0x2005, 0, 8, "io"},
                    {0x2006, 0, 8, "low"},
                    {0x2007, 0, 8, "high"},
                    {0x2100, 0, 8, "none"}}}};
    board.device_od_map = {{"io", {"io", 0x2000, 0}}};
  }

  /// Runs `operation(thread, step)` for every thread and the steps from 1; counts the failures.
  template <typename Operation>
  unsigned run_threads(std::size_t threads, const Operation& operation) {
    std::atomic<unsigned> failures{0};
    std::promise<void> begin;
    const std::shared_future<void> begun(begin.get_future());
    std::vector<std::thread> running;
    for (std::size_t thread = 0; thread < threads; ++thread) {
      running.emplace_back([&, thread] {
        begun.wait();
        for (unsigned step = 1; step <= steps; ++step) {
          failures += operation(thread, step).ok ? 0U : 1U;
        }
      });
    }
    begin.set_value();
    for (std::thread& thread : running) {
      thread.join();
    }
    return failures;
  }

  std::uint8_t node_id = 5;
  NodeBackend node;
  BoardConfig board;
  CanOpenNodeController controller{node_id, node, board};
};

/// The serial order that the frames show: checks that each differs from the one before in the bits
/// of exactly one writer, and answers every writer's values in that order.
std::vector<std::vector<Word>> histories(const std::vector<Word>& frames,
                                         const std::vector<Writer>& all) {
  std::vector<std::vector<Word>> values(all.size());
  Word before = 0;
  for (const Word frame : frames) {
    int changed = 0;
    for (std::size_t writer = 0; writer < all.size(); ++writer) {
      if (((frame ^ before) & all[writer].mask) != 0) {
        ++changed;
        values[writer].push_back(frame & all[writer].mask);
      }
    }
    EXPECT_EQ(changed, 1) << std::hex << before << " then " << frame;
    before = frame;
  }
  return values;
}

TEST_F(ManyWriters, every_frame_shows_one_more_operation_with_no_update_lost) {
  const std::vector<Writer> all = writers();
  const unsigned failures = run_threads(all.size(), [&](std::size_t writer, unsigned step) {
    return controller.execute_configured_operation(all[writer].op, "io", all[writer].payload(step));
  });

  EXPECT_EQ(failures, 0U);
  EXPECT_FALSE(node.overlapped);
  EXPECT_EQ(node.frames.size(), all.size() * steps);
  const auto values = histories(node.frames, all);
  for (std::size_t writer = 0; writer < all.size(); ++writer) {
    SCOPED_TRACE(all[writer].op.kind);
    std::vector<Word> expected;
    for (unsigned step = 1; step <= steps; ++step) {
      expected.push_back(all[writer].value(step));
    }
    EXPECT_EQ(values[writer], expected);
  }
}

TEST_F(ManyWriters, forgetting_in_between_loses_no_update) {
  const std::vector<Writer> all = writers();
  const unsigned failures = run_threads(all.size() + 1, [&](std::size_t writer, unsigned step) {
    if (writer == all.size()) {
      controller.forget_rpdo_shadows();
      return ok("OK");
    }
    return controller.execute_configured_operation(all[writer].op, "io", all[writer].payload(step));
  });

  EXPECT_EQ(failures, 0U);
  EXPECT_EQ(node.frames.size(), all.size() * steps);
  for (const std::vector<Word>& values : histories(node.frames, all)) {
    EXPECT_EQ(values.size(), steps);
  }
}

TEST_F(ManyWriters, bits_delivered_by_sdo_are_written_in_the_order_of_their_changes) {
  OperationConfig op = rpdo_operation("pdo_bit_patch", {"bits"});
  op.transport = "sdo";
  const unsigned failures = run_threads(8, [&](std::size_t bit, unsigned step) {
    return controller.execute_configured_operation(op, "io",
                                                   {1, static_cast<std::uint8_t>(bit), odd(step)});
  });

  EXPECT_EQ(failures, 0U);
  EXPECT_FALSE(node.overlapped);
  ASSERT_EQ(node.written.size(), 8 * steps);
  unsigned before = 0;
  for (const unsigned byte : node.written) {
    const unsigned change = before ^ byte;
    ASSERT_TRUE(change != 0 && (change & (change - 1)) == 0) << before << " then " << byte;
    before = byte;
  }
}

// --- exceptions under the lock ---

class AfterAnException : public ShadowTest {
 protected:
  AfterAnException() {
    op.kind = "pdo_write";
    op.pdo_number = 1;
    op.field = "byte";
  }

  /// Runs `action` on a thread of its own. When a lock was left behind the thread can never be
  /// joined, so that the program ends there and then.
  template <typename Action>
  static auto elsewhere(const Action& action) {
    auto other = std::async(std::launch::async, action);
    if (!is_done(other)) {
      std::cerr << "another thread waits for a lock that an exception left behind\n";
      std::abort();
    }
    return other.get();
  }

  OperationResult run_elsewhere() {
    return elsewhere([&] { return run({0xA1}); });
  }
};

TEST_F(AfterAnException, of_a_read_another_thread_loads_and_sends) {
  backend.serve(2);
  backend.raise_exception();
  EXPECT_THROW(run({0x99}), BusException);
  backend.calls.clear();
  EXPECT_EQ(run_elsewhere(), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"}));
}

TEST_F(AfterAnException, of_a_refresh_another_thread_loads_and_sends) {
  op.refresh_shadow = 1;
  backend.raise_exception();
  EXPECT_THROW(run({0xA1}), BusException);
  backend.calls.clear();
  op.refresh_shadow = 0;
  EXPECT_EQ(run_elsewhere(), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"}));
}

TEST_F(AfterAnException, of_a_send_another_thread_sends) {
  backend.serve(4);
  backend.raise_exception();
  EXPECT_THROW(run({0x99}), BusException);
  backend.calls.clear();
  EXPECT_EQ(run_elsewhere(), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"});
}

TEST_F(AfterAnException, on_another_thread_this_one_loads_and_sends) {
  backend.serve(2);
  backend.raise_exception();
  EXPECT_THROW(run_elsewhere(), BusException);
  backend.calls.clear();
  EXPECT_EQ(run({0xA1}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then({"rpdo 5 1 len 8: 11 12 A1 14 15 16 17 18"}));
}

TEST_F(AfterAnException, of_a_write_by_sdo_another_thread_sends) {
  OperationConfig patch;
  patch.kind = "pdo_bit_patch";
  patch.transport = "sdo";
  patch.pdo_number = 1;
  patch.fields = {"flags"};
  backend.serve(4);
  backend.raise_exception();
  EXPECT_THROW(controller.execute_configured_operation(patch, "device", {1, 7, 1}), BusException);
  backend.calls.clear();
  EXPECT_EQ(run_elsewhere(), ok("OK"));
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 1 len 8: 11 12 A1 94 15 16 17 18"});
}

TEST_F(AfterAnException, of_a_read_the_images_are_free) {
  backend.raise_exception();
  EXPECT_THROW(run({0xA1}), BusException);
  elsewhere([&] {
    touch_images(controller);
    return true;
  });
  EXPECT_EQ(run_elsewhere(), ok("OK"));
}

}  // namespace
}  // namespace velmora_can_bridge
