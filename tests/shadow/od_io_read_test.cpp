#include "support/controller_test.hpp"

namespace velmora_can_bridge {
namespace {

class OdIoRead : public ControllerTest {
 protected:
  OdIoRead() {
    op.kind = "od_io_read";
    board.device_od_map = {{"io", {"io", 0x2100, 0}}, {"high", {"io", 0xFFF0, 0}}};
  }
};

struct ReadRow {
  const char* name;
  const char* device;
  Bytes payload;
  const char* call;
};

void PrintTo(const ReadRow& row, std::ostream* out) { *out << row.name; }

class OdIoReadAddress : public OdIoRead, public testing::WithParamInterface<ReadRow> {};

TEST_P(OdIoReadAddress, is_cut_from_the_payload) {
  backend.answer_read({0xDE, 0xAD});
  EXPECT_EQ(run(GetParam().payload, GetParam().device), ok("OK", {0xDE, 0xAD}));
  EXPECT_EQ(backend.calls, std::vector<std::string>{GetParam().call});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, OdIoReadAddress,
    testing::Values(ReadRow{"no_payload_reads_the_base", "io", {}, "read 5 0x2100/0"},
                    ReadRow{"one_byte_is_no_offset", "io", {7}, "read 5 0x2100/0"},
                    ReadRow{"two_bytes_are_the_offset", "io", {7, 0}, "read 5 0x2107/0"},
                    ReadRow{"offset_is_little_endian", "io", {0x02, 0x01}, "read 5 0x2202/0"},
                    ReadRow{"third_byte_is_the_sub_index", "io", {7, 0, 255}, "read 5 0x2107/255"},
                    ReadRow{"later_bytes_are_ignored", "io", {7, 0, 9, 1, 2, 3}, "read 5 0x2107/9"},
                    ReadRow{"highest_index_does_not_wrap", "high", {0x0F, 0, 1}, "read 5 0xFFFF/1"},
                    ReadRow{"index_wraps_at_16_bits", "high", {0x10, 0, 1}, "read 5 0x0000/1"},
                    ReadRow{"highest_offset_wraps_to_one_below_the_base",
                            "io",
                            {0xFF, 0xFF},
                            "read 5 0x20FF/0"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(OdIoRead, unknown_device_is_named) {
  EXPECT_EQ(run({}, "IO"), failed("Device not found: IO"));
  EXPECT_EQ(run({}, ""), failed("Device not found: "));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(OdIoRead, refused_read_names_the_object) {
  backend.refuse();
  EXPECT_EQ(run({1, 0, 100}, "io"), failed("SDO read failed at 0x2101/100"));
  EXPECT_EQ(backend.calls.size(), 1U);
}

TEST_F(OdIoRead, refused_read_drops_what_the_backend_left) {
  backend.refuse({1, 2, 3});
  EXPECT_EQ(run({}, "io"), failed("SDO read failed at 0x2100/0"));
}

TEST_F(OdIoRead, exception_of_the_read_passes_to_the_caller) {
  backend.raise_exception();
  EXPECT_THROW(run({}, "io"), BusException);
  EXPECT_EQ(run({}, "io"), ok("OK"));
}

TEST_F(OdIoRead, object_without_bytes_is_a_success) {
  backend.answer_read({});
  EXPECT_EQ(run({}, "io"), ok("OK"));
}

TEST_F(OdIoRead, consults_no_member_of_the_operation) {
  op.transport = "pdo";
  op.index = 0x7777;
  op.sub_index = 77;
  op.index_offset = 7;
  op.pdo_number = 1;
  op.refresh_shadow = 1;
  op.field = "a";
  op.fields = {"a"};
  run({1, 0, 2}, "io");
  EXPECT_EQ(backend.calls, std::vector<std::string>{"read 5 0x2101/2"});
}

TEST_F(OdIoRead, mapped_object_is_read_by_sdo_every_time) {
  board.pdos = {{1, "RPDO", 0, {{0x2100, 0, 8, "a"}}}};
  run({}, "io");
  run({}, "io");
  EXPECT_EQ(backend.calls, (std::vector<std::string>{"read 5 0x2100/0", "read 5 0x2100/0"}));
}

}  // namespace
}  // namespace velmora_can_bridge
