#include "support/scripted_backend.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

TEST(ScriptedBackend, records_every_call_in_order_with_all_its_arguments) {
  ScriptedBackend backend;
  Bytes data;
  backend.sdo_read(1, 0xABCD, 255, data);
  backend.sdo_write(127, 0x0001, 0, {0x0A, 0xFF});
  backend.send_rpdo(2, 3, {1, 2, 3, 4, 5, 6, 7, 0x80}, 4);
  EXPECT_EQ(backend.calls,
            (std::vector<std::string>{"read 1 0xABCD/255", "write 127 0x0001/0 0A FF",
                                      "rpdo 2 3 len 4: 01 02 03 04 05 06 07 80"}));
}

TEST(ScriptedBackend, answers_in_the_order_of_its_script) {
  ScriptedBackend backend;
  backend.answer_read({1, 2});
  backend.refuse({9});
  backend.accept();
  Bytes first;
  Bytes second;
  EXPECT_TRUE(backend.sdo_read(1, 2, 3, first));
  EXPECT_EQ(first, (Bytes{1, 2}));
  EXPECT_FALSE(backend.sdo_read(1, 2, 3, second));
  EXPECT_EQ(second, Bytes{9});
  EXPECT_TRUE(backend.sdo_write(1, 2, 3, {}));
}

TEST(ScriptedBackend, refuses_writes_and_sends_as_it_refuses_reads) {
  ScriptedBackend backend;
  backend.refuse();
  backend.refuse();
  EXPECT_FALSE(backend.sdo_write(1, 2, 3, {}));
  EXPECT_FALSE(backend.send_rpdo(1, 2, {}, 8));
  EXPECT_TRUE(backend.send_rpdo(1, 2, {}, 8));
}

TEST(ScriptedBackend, throws_from_reads_writes_or_sends_and_then_goes_on) {
  ScriptedBackend backend;
  Bytes data;
  backend.raise_exception();
  backend.raise_exception();
  backend.raise_exception();
  EXPECT_THROW(backend.sdo_read(1, 2, 3, data), BusException);
  EXPECT_THROW(backend.sdo_write(1, 2, 3, {}), BusException);
  EXPECT_THROW(backend.send_rpdo(1, 2, {}, 8), BusException);
  EXPECT_EQ(backend.calls.size(), 3U);
  EXPECT_TRUE(backend.sdo_write(1, 2, 3, {}));
}

TEST(ScriptedBackend, reads_its_objects_by_index_and_sub_index_without_a_script) {
  ScriptedBackend backend;
  backend.objects = {{{2, 3}, {7, 8}}};
  Bytes present;
  Bytes absent;
  EXPECT_TRUE(backend.sdo_read(1, 2, 3, present));
  EXPECT_EQ(present, (Bytes{7, 8}));
  EXPECT_TRUE(backend.sdo_read(1, 2, 4, absent));
  EXPECT_EQ(absent, Bytes{});
}

TEST(ScriptedBackend, serves_as_many_calls_as_it_is_told_before_the_script_goes_on) {
  ScriptedBackend backend;
  backend.objects = {{{2, 3}, {7}}};
  backend.serve(2);
  backend.refuse();
  Bytes data;
  EXPECT_TRUE(backend.sdo_read(1, 2, 3, data));
  EXPECT_EQ(data, Bytes{7});
  EXPECT_TRUE(backend.send_rpdo(1, 2, {}, 8));
  EXPECT_FALSE(backend.sdo_write(1, 2, 3, {}));
}

TEST(ScriptedBackend, shows_each_call_while_it_is_under_way) {
  ScriptedBackend backend;
  std::vector<std::string> seen;
  backend.during_call = [&](const std::string& call) { seen.push_back(call); };
  backend.sdo_write(1, 2, 3, {});
  backend.raise_exception();
  EXPECT_THROW(backend.send_rpdo(1, 2, {}, 0), BusException);
  EXPECT_EQ(seen, backend.calls);
  EXPECT_EQ(seen.size(), 2U);
}

TEST(ScriptedBackend, marks_a_read_whose_vector_is_not_empty) {
  ScriptedBackend backend;
  Bytes dirty{1};
  backend.sdo_read(1, 2, 3, dirty);
  EXPECT_EQ(backend.calls, std::vector<std::string>{"read 1 0x0002/3 DIRTY"});
}

}  // namespace
}  // namespace velmora_can_bridge
