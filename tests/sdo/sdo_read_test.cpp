#include "support/controller_test.hpp"

namespace velmora_can_bridge {
namespace {

class SdoRead : public ControllerTest {
 protected:
  SdoRead() {
    op.kind = "sdo_read";
    op.index = 0x1018;
    op.sub_index = 1;
  }
};

TEST_F(SdoRead, answers_the_bytes_of_the_object) {
  backend.answer_read({0x4D, 0x56, 0x00, 0x80});
  EXPECT_EQ(run(), ok("OK", {0x4D, 0x56, 0x00, 0x80}));
  EXPECT_EQ(backend.calls, std::vector<std::string>{"read 5 0x1018/1"});
}

TEST_F(SdoRead, object_without_bytes_is_a_success) {
  backend.answer_read({});
  EXPECT_EQ(run(), ok("OK"));
}

TEST_F(SdoRead, refused_read_names_the_object) {
  backend.refuse();
  EXPECT_EQ(run(), failed("SDO read failed at 0x1018/1"));
  EXPECT_EQ(backend.calls.size(), 1U);
}

TEST_F(SdoRead, refused_read_drops_what_the_backend_left) {
  backend.refuse({1, 2, 3});
  EXPECT_EQ(run(), failed("SDO read failed at 0x1018/1"));
}

TEST_F(SdoRead, sub_index_of_a_failure_is_decimal) {
  struct Row {
    std::uint8_t sub_index;
    const char* message;
  };
  for (const Row& row :
       {Row{0, "SDO read failed at 0x1018/0"}, Row{100, "SDO read failed at 0x1018/100"},
        Row{255, "SDO read failed at 0x1018/255"}}) {
    backend.refuse();
    op.sub_index = row.sub_index;
    EXPECT_EQ(run(), failed(row.message));
  }
}

TEST_F(SdoRead, ignores_device_and_payload) {
  backend.answer_read({7});
  EXPECT_EQ(run({1, 2, 3}, "nobody"), ok("OK", {7}));
  EXPECT_EQ(backend.calls, std::vector<std::string>{"read 5 0x1018/1"});
}

}  // namespace
}  // namespace velmora_can_bridge
