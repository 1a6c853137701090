#include "velmora_can_bridge/bridge/device_comparison.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {

inline bool operator==(const Difference& one, const Difference& other) {
  return std::tie(one.pdo, one.what, one.file, one.device) ==
         std::tie(other.pdo, other.what, other.file, other.device);
}

inline void PrintTo(const Difference& row, std::ostream* out) {
  *out << row.pdo << " | " << row.what << " | " << row.file << " | " << row.device;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const PdoMapping controlword{0x6040, 0, 16, "controlword"};
const PdoMapping velocity{0x60FF, 0, 32, "velocity"};
const PdoMapping red{0x2000, 1, 8, "red"};
const PdoMapping dummy{0x0005, 0, 8, ""};

PdoConfig rpdo(std::uint8_t number, std::vector<PdoMapping> mappings, std::uint16_t cob_id = 0) {
  return {number, "RPDO", cob_id, std::move(mappings)};
}

PdoConfig tpdo(std::uint8_t number, std::vector<PdoMapping> mappings, std::uint16_t cob_id = 0) {
  return {number, "TPDO", cob_id, std::move(mappings)};
}

PdoConfig with_transmission(PdoConfig pdo, std::uint8_t type) {
  pdo.transmission = type;
  return pdo;
}

std::vector<std::uint8_t> u32(std::uint32_t value) {
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8U),
          static_cast<std::uint8_t>(value >> 16U), static_cast<std::uint8_t>(value >> 24U)};
}

/// A simulated node on a bus of its own, with PDOs of its own.
class Device {
 public:
  explicit Device(std::vector<PdoConfig> pdos, bool is_on = true)
      : node(0x10, {std::move(pdos), {}}) {
    if (is_on) {
      attached.boot();
    }
  }

  void set(std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t> value) {
    node.device().add_object(index, sub_index,
                             {ObjectAccess::read_only, std::move(value), false, 0});
  }

  DeviceComparison compare(std::vector<PdoConfig> pdos) {
    const NodeConfig file{0x10, {std::move(pdos), {}}, {}};
    return compare_with_device(
        file,
        [this](std::uint16_t index,
               std::uint8_t sub_index) -> Expected<std::vector<std::uint8_t>, BusError> {
          std::vector<std::uint8_t> data;
          if (!backend.sdo_read(0x10, index, sub_index, data)) {
            return Unexpected{*backend.last_error(0x10)};
          }
          return data;
        });
  }

  InProcessBus bus{BusTime::simulated};
  SimulatedBusNode node;
  InProcessNode attached{bus, node};
  CanBusBackend backend{bus};
};

TEST(DeviceComparisonTest, finds_nothing_where_all_is_equal) {
  const std::vector<PdoConfig> pdos{rpdo(1, {controlword, velocity}), rpdo(5, {red}, 0x690),
                                    rpdo(6, {red}), tpdo(1, {dummy, red}), tpdo(2, {})};
  const DeviceComparison comparison = Device(pdos).compare(pdos);
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.gaps, IsEmpty());
  EXPECT_THAT(comparison.notes, IsEmpty());
}

TEST(DeviceComparisonTest, sees_what_a_master_has_configured_since_the_start) {
  const std::vector<PdoConfig> pdos{rpdo(1, {controlword, velocity})};
  Device device(pdos);
  const auto write = [&](std::uint16_t index, std::uint8_t sub_index,
                         const std::vector<std::uint8_t>& value) {
    ASSERT_TRUE(device.backend.sdo_write(0x10, index, sub_index, value));
  };
  write(0x1400, 1, u32(0x80000210));
  write(0x1600, 0, {0});
  write(0x1600, 1, u32(0x60FF0020));
  write(0x1600, 0, {1});
  write(0x1400, 1, u32(0x333));
  EXPECT_THAT(device.compare(pdos).differences,
              ElementsAre(Difference{"RPDO 1", "COB-ID", "0x0210", "0x0333"},
                          Difference{"RPDO 1", "number of objects", "2", "1"},
                          Difference{"RPDO 1", "position 1: object", "0x6040/0", "0x60FF/0"},
                          Difference{"RPDO 1", "position 1: length", "16 bits", "32 bits"},
                          Difference{"RPDO 1", "position 2", "0x60FF/0, 32 bits", "nothing"}));
}

struct DifferenceCase {
  std::string name;
  std::vector<PdoConfig> file;
  std::vector<PdoConfig> device;
  std::vector<Difference> differences;
};

void PrintTo(const DifferenceCase& row, std::ostream* out) { *out << row.name; }

class DeviceComparisonDifferences : public testing::TestWithParam<DifferenceCase> {};

TEST_P(DeviceComparisonDifferences, are_named) {
  const DeviceComparison comparison = Device(GetParam().device).compare(GetParam().file);
  EXPECT_EQ(comparison.differences, GetParam().differences);
  EXPECT_THAT(comparison.gaps, IsEmpty());
}

const std::vector<DifferenceCase> difference_cases{
    {"cob_id",
     {rpdo(1, {red}, 0x222)},
     {rpdo(1, {red})},
     {{"RPDO 1", "COB-ID", "0x0222", "0x0210"}}},
    {"cob_id_of_a_tpdo",
     {tpdo(2, {red})},
     {tpdo(2, {red}, 0x333)},
     {{"TPDO 2", "COB-ID", "0x0290", "0x0333"}}},
    {"cob_id_only_on_the_device",
     {rpdo(6, {red})},
     {rpdo(6, {red}, 0x690)},
     {{"RPDO 6", "COB-ID", "none", "0x0690"}}},
    {"disabled", {rpdo(6, {red}, 0x690)}, {rpdo(6, {red})}, {{"RPDO 6", "enabled", "yes", "no"}}},
    {"absent",
     {rpdo(1, {red}), rpdo(2, {red})},
     {rpdo(2, {red})},
     {{"RPDO 1", "PDO", "there", "not on the device"}}},
    {"direction",
     {tpdo(1, {red})},
     {rpdo(1, {red})},
     {{"TPDO 1", "PDO", "there", "not on the device"}}},
    {"order",
     {rpdo(1, {controlword, velocity})},
     {rpdo(1, {velocity, controlword})},
     {{"RPDO 1", "order", "0x6040/0, 0x60FF/0", "0x60FF/0, 0x6040/0"}}},
    {"index",
     {rpdo(1, {controlword, red})},
     {rpdo(1, {controlword, {0x2001, 1, 8, ""}})},
     {{"RPDO 1", "position 2: object", "0x2000/1", "0x2001/1"}}},
    {"sub_index",
     {rpdo(1, {red})},
     {rpdo(1, {{0x2000, 2, 8, ""}})},
     {{"RPDO 1", "position 1: object", "0x2000/1", "0x2000/2"}}},
    {"length",
     {rpdo(1, {red})},
     {rpdo(1, {{0x2000, 1, 1, ""}})},
     {{"RPDO 1", "position 1: length", "8 bits", "1 bit"}}},
    {"object_and_length",
     {rpdo(1, {red})},
     {rpdo(1, {controlword})},
     {{"RPDO 1", "position 1: object", "0x2000/1", "0x6040/0"},
      {"RPDO 1", "position 1: length", "8 bits", "16 bits"}}},
    {"dummy_on_the_device",
     {rpdo(1, {red})},
     {rpdo(1, {dummy})},
     {{"RPDO 1", "position 1: object", "0x2000/1", "0x0005/0"}}},
    {"fewer_on_the_device",
     {rpdo(1, {controlword, red})},
     {rpdo(1, {controlword})},
     {{"RPDO 1", "number of objects", "2", "1"},
      {"RPDO 1", "position 2", "0x2000/1, 8 bits", "nothing"}}},
    {"more_on_the_device",
     {rpdo(1, {controlword})},
     {rpdo(1, {controlword, red})},
     {{"RPDO 1", "number of objects", "1", "2"},
      {"RPDO 1", "position 2", "nothing", "0x2000/1, 8 bits"}}},
    {"same_objects_another_time",
     {rpdo(1, {red, red, dummy})},
     {rpdo(1, {red, dummy, dummy})},
     {{"RPDO 1", "position 2: object", "0x2000/1", "0x0005/0"}}},
    {"all_at_once",
     {rpdo(1, {red}, 0x222), rpdo(2, {red}), tpdo(1, {red})},
     {rpdo(1, {controlword}), tpdo(1, {})},
     {{"RPDO 1", "COB-ID", "0x0222", "0x0210"},
      {"RPDO 1", "position 1: object", "0x2000/1", "0x6040/0"},
      {"RPDO 1", "position 1: length", "8 bits", "16 bits"},
      {"RPDO 2", "PDO", "there", "not on the device"},
      {"TPDO 1", "number of objects", "1", "0"},
      {"TPDO 1", "position 1", "0x2000/1, 8 bits", "nothing"}}},
};

INSTANTIATE_TEST_SUITE_P(Table, DeviceComparisonDifferences, testing::ValuesIn(difference_cases),
                         [](const auto& row) { return row.param.name; });

TEST(DeviceComparisonTest, reads_the_bits_beside_the_cob_id) {
  struct Case {
    std::string name;
    std::uint16_t file;
    std::uint32_t device;
    std::vector<Difference> differences;
  };
  const std::vector<Case> cases{
      {"no remote frames", 0x690, 0x40000690, {}},
      {"extended", 0x690, 0x20000690, {{"RPDO 6", "COB-ID", "0x0690", "0x00000690 (29 bits)"}}},
      {"long identifier",
       0x690,
       0x32345678,
       {{"RPDO 6", "COB-ID", "0x0690", "0x12345678 (29 bits)"}}},
      {"bits that an 11-bit identifier does not have", 0x690, 0x00000E90, {}},
      {"disabled with its identifier", 0x690, 0x80000690, {{"RPDO 6", "enabled", "yes", "no"}}},
      {"disabled with another",
       0x690,
       0xC0000300,
       {{"RPDO 6", "enabled", "yes", "no"}, {"RPDO 6", "COB-ID", "0x0690", "0x0300"}}},
      {"disabled without", 0x690, 0x80000000, {{"RPDO 6", "enabled", "yes", "no"}}},
      {"enabled without", 0x690, 0x00000000, {{"RPDO 6", "COB-ID", "0x0690", "none"}}},
      {"none in the file, disabled", 0, 0x80000300, {}},
      {"none in the file, enabled", 0, 0x00000300, {{"RPDO 6", "COB-ID", "none", "0x0300"}}},
  };
  for (const Case& row : cases) {
    Device device({rpdo(6, {red}, 0x690)});
    device.set(0x1405, 1, u32(row.device));
    EXPECT_EQ(device.compare({rpdo(6, {red}, row.file)}).differences, row.differences) << row.name;
  }
}

TEST(DeviceComparisonTest, compares_transmission_types_where_the_file_has_them) {
  struct Case {
    std::string name;
    std::optional<std::uint8_t> file;
    std::uint8_t device;
    std::vector<std::string> differing;
  };
  const std::vector<Case> cases{
      {"none in the file", std::nullopt, 1, {}},
      {"the same", 240, 240, {}},
      {"0 is one, too", 0, 255, {"0", "255"}},
      {"others", 254, 255, {"254", "255"}},
  };
  for (const Case& row : cases) {
    for (const bool is_rpdo : {true, false}) {
      Device device({rpdo(3, {red}), tpdo(3, {red})});
      device.set(is_rpdo ? 0x1402 : 0x1802, 2, {row.device});
      PdoConfig pdo = is_rpdo ? rpdo(3, {red}) : tpdo(3, {red});
      pdo.transmission = row.file;
      const DeviceComparison comparison = device.compare({pdo});
      std::vector<Difference> expected;
      if (!row.differing.empty()) {
        expected.push_back(
            {is_rpdo ? "RPDO 3" : "TPDO 3", "transmission", row.differing[0], row.differing[1]});
      }
      EXPECT_EQ(comparison.differences, expected) << row.name;
      EXPECT_THAT(comparison.gaps, IsEmpty()) << row.name;
    }
  }
}

TEST(DeviceComparisonTest, compares_the_transmission_type_of_a_disabled_pdo) {
  Device device({rpdo(6, {red})});
  EXPECT_THAT(device.compare({with_transmission(rpdo(6, {red}), 1)}).differences,
              ElementsAre(Difference{"RPDO 6", "transmission", "1", "255"}));
}

TEST(DeviceComparisonTest, finds_a_transmission_type_only_in_the_file) {
  Device device({rpdo(1, {red})});
  device.bus.set_fault_rule([](const CanFrame& frame) {
    const bool tells =
        frame.id == 0x590 && frame.data[1] == 0x00 && frame.data[2] == 0x14 && frame.data[3] == 2;
    const CanFrame abort{0x590, 8, {0x80, 0x00, 0x14, 2, 0x11, 0x00, 0x09, 0x06}};
    return std::vector<CanDelivery>{{tells ? abort : frame}};
  });
  const DeviceComparison comparison = device.compare({with_transmission(rpdo(1, {red}), 1)});
  EXPECT_THAT(comparison.differences,
              ElementsAre(Difference{"RPDO 1", "transmission", "1", "none"}));
  EXPECT_THAT(comparison.gaps, IsEmpty());
}

TEST(DeviceComparisonTest, notes_an_rpdo_whose_transmission_type_the_node_does_not_tell) {
  Device device({rpdo(1, {red})});
  device.node.device().add_object(0x1400, 2, {ObjectAccess::write_only, {1}, false, 0});
  const DeviceComparison comparison = device.compare({rpdo(1, {red})});
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.gaps, IsEmpty());
  EXPECT_THAT(comparison.notes,
              ElementsAre("it is not known whether RPDO 1 waits for a SYNC: 0x1400/2: abort "
                          "0x06010001, the object can only be written"));
}

TEST(DeviceComparisonTest, leaves_out_a_transmission_type_that_the_node_refuses) {
  Device device({rpdo(1, {red})});
  device.node.device().add_object(0x1400, 2, {ObjectAccess::write_only, {1}, false, 0});
  const DeviceComparison comparison = device.compare({with_transmission(rpdo(1, {red}), 1)});
  EXPECT_THAT(comparison.differences, IsEmpty());
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].what, "RPDO 1");
  EXPECT_EQ(comparison.gaps[0].reason,
            "0x1400/2: abort 0x06010001, the object can only be written");
}

TEST(DeviceComparisonTest, tells_synchronous_rpdos_with_their_sync) {
  Device device({rpdo(1, {red}), rpdo(2, {red}), rpdo(3, {red}), rpdo(4, {red}),
                 rpdo(5, {red}, 0x690), rpdo(6, {red}), tpdo(1, {red})});
  const std::vector<std::pair<std::uint16_t, std::uint8_t>> types{
      {0x1400, 0},   {0x1401, 240}, {0x1402, 254}, {0x1403, 241},
      {0x1404, 255}, {0x1405, 1},   {0x1800, 1}};
  for (const auto& [index, type] : types) {
    device.set(index, 2, {type});
  }
  const DeviceComparison comparison =
      device.compare({rpdo(1, {red}), rpdo(2, {red}), rpdo(3, {red}), rpdo(4, {red}),
                      rpdo(5, {red}, 0x690), rpdo(6, {red}), tpdo(1, {red})});
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.synchronous_rpdos, ElementsAre("RPDO 1", "RPDO 2"));
  EXPECT_EQ(comparison.sync_cob_id, 0x80U);
}

TEST(DeviceComparisonTest, disabled_rpdo_of_a_synchronous_type_waits_for_no_sync) {
  Device device({rpdo(6, {red})});
  device.set(0x1405, 2, {1});
  const DeviceComparison comparison = device.compare({with_transmission(rpdo(6, {red}), 1)});
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.synchronous_rpdos, IsEmpty());
  EXPECT_EQ(comparison.sync_cob_id, std::nullopt);
}

TEST(DeviceComparisonTest,
     does_not_read_the_transmission_type_of_a_tpdo_that_the_file_does_not_have) {
  Device device({tpdo(1, {red})});
  int requests = 0;
  device.bus.set_fault_rule([&](const CanFrame& frame) {
    const bool asks =
        frame.id == 0x610 && frame.data[1] == 0x00 && frame.data[2] == 0x18 && frame.data[3] == 2;
    requests += asks ? 1 : 0;
    return std::vector<CanDelivery>{{frame}};
  });
  device.compare({tpdo(1, {red})});
  EXPECT_EQ(requests, 0);
  device.compare({with_transmission(tpdo(1, {red}), 1)});
  EXPECT_EQ(requests, 1);
}

TEST(DeviceComparisonTest, asks_for_no_sync_where_no_rpdo_waits_for_it) {
  Device device({rpdo(1, {red})});
  device.set(0x1005, 0, u32(0x81));
  EXPECT_EQ(device.compare({rpdo(1, {red})}).sync_cob_id, std::nullopt);
}

TEST(DeviceComparisonTest, reads_the_cob_id_of_the_sync) {
  struct Case {
    std::uint32_t object;
    std::uint32_t cob_id;
  };
  for (const Case& row : {Case{0x80, 0x80}, Case{0x40000123, 0x123}, Case{0xC0000880, 0x80},
                          Case{0x20000080, 0x20000080}, Case{0x72345678, 0x32345678}, Case{0, 0}}) {
    Device device({rpdo(1, {red})});
    device.set(0x1400, 2, {1});
    device.set(0x1005, 0, u32(row.object));
    EXPECT_EQ(device.compare({rpdo(1, {red})}).sync_cob_id, row.cob_id) << row.object;
  }
}

TEST(DeviceComparisonTest, leaves_out_a_sync_that_the_node_refuses_to_tell) {
  Device device({rpdo(1, {red}), rpdo(3, {red})});
  device.set(0x1400, 2, {1});
  device.node.device().add_object(0x1005, 0, {ObjectAccess::write_only, u32(0x80), false, 0});
  const DeviceComparison comparison = device.compare({rpdo(1, {red})});
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].what, "SYNC");
  EXPECT_EQ(comparison.gaps[0].reason,
            "0x1005/0: abort 0x06010001, the object can only be written");
  EXPECT_EQ(comparison.sync_cob_id, std::nullopt);
  EXPECT_THAT(comparison.notes, SizeIs(1));
}

TEST(DeviceComparisonTest, ends_at_a_sync_that_the_node_does_not_answer) {
  Device device({rpdo(1, {red})});
  device.set(0x1400, 2, {1});
  device.bus.set_fault_rule([](const CanFrame& frame) {
    const bool asks = frame.id == 0x610 && frame.data[1] == 0x05 && frame.data[2] == 0x10;
    return asks ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
  });
  const DeviceComparison comparison = device.compare({rpdo(1, {red})});
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].what, "SYNC and all that follows");
  EXPECT_EQ(comparison.sync_cob_id, std::nullopt);
}

TEST(DeviceComparisonTest, does_not_read_the_mapping_of_a_multiplexed_pdo) {
  Device device({rpdo(1, {red})});
  device.set(0x1600, 0, {254});
  const DeviceComparison comparison = device.compare({rpdo(1, {red})});
  EXPECT_THAT(comparison.differences,
              ElementsAre(Difference{"RPDO 1", "number of objects", "1", "254"}));
  EXPECT_THAT(comparison.gaps, IsEmpty());
}

TEST(DeviceComparisonTest, notes_enabled_pdos_that_the_file_does_not_hold) {
  Device device({rpdo(1, {red}), rpdo(3, {red}), rpdo(5, {red}), rpdo(8, {red}, 0x333),
                 rpdo(9, {red}, 0x334), tpdo(4, {red})});
  const DeviceComparison comparison = device.compare({rpdo(1, {red})});
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.gaps, IsEmpty());
  EXPECT_THAT(
      comparison.notes,
      ElementsAre(
          "RPDO 3 is enabled on the device (COB-ID 0x0410), the board file does not hold it",
          "RPDO 8 is enabled on the device (COB-ID 0x0333), the board file does not hold it",
          "TPDO 4 is enabled on the device (COB-ID 0x0490), the board file does not hold it"));
}

TEST(DeviceComparisonTest, searches_up_to_the_highest_number_in_the_file) {
  Device device({rpdo(11, {red}, 0x333), rpdo(12, {red}, 0x334), rpdo(13, {red}, 0x335)});
  EXPECT_THAT(device.compare({rpdo(12, {red}, 0x334)}).notes,
              ElementsAre("RPDO 11 is enabled on the device (COB-ID 0x0333), the board file does "
                          "not hold it"));
}

TEST(DeviceComparisonTest, reaches_the_last_pdo) {
  const std::vector<PdoConfig> pdos{rpdo(255, {red}, 0x333), tpdo(255, {red}, 0x334)};
  const DeviceComparison comparison = Device(pdos).compare(pdos);
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.gaps, IsEmpty());
}

TEST(DeviceComparisonTest, leaves_out_what_the_node_refuses) {
  Device device({rpdo(1, {red}), rpdo(2, {red})});
  device.node.device().add_object(0x1600, 1, {ObjectAccess::write_only, u32(0), false, 0});
  const DeviceComparison comparison =
      device.compare({rpdo(1, {red}, 0x222), rpdo(2, {controlword})});
  EXPECT_THAT(comparison.differences,
              ElementsAre(Difference{"RPDO 1", "COB-ID", "0x0222", "0x0210"},
                          Difference{"RPDO 2", "position 1: object", "0x6040/0", "0x2000/1"},
                          Difference{"RPDO 2", "position 1: length", "16 bits", "8 bits"}));
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].what, "RPDO 1");
  EXPECT_EQ(comparison.gaps[0].reason,
            "0x1600/1: abort 0x06010001, the object can only be written");
}

TEST(DeviceComparisonTest, leaves_out_what_has_the_wrong_size) {
  struct Case {
    std::uint16_t index;
    std::uint8_t sub_index;
    std::vector<std::uint8_t> value;
    std::string reason;
  };
  const std::vector<Case> cases{
      {0x1400, 1, {1, 2}, "0x1400/1: the object has 2 bytes, expected were 4"},
      {0x1400, 1, {1, 2, 3, 4, 5}, "0x1400/1: the object has 5 bytes, expected were 4"},
      {0x1600, 0, {}, "0x1600/0: the object has 0 bytes, expected were 1"},
      {0x1600, 1, {1}, "0x1600/1: the object has 1 bytes, expected were 4"},
  };
  for (const Case& row : cases) {
    Device device({rpdo(1, {red})});
    device.set(row.index, row.sub_index, row.value);
    const DeviceComparison comparison = device.compare({rpdo(1, {red})});
    ASSERT_THAT(comparison.gaps, SizeIs(1)) << row.reason;
    EXPECT_EQ(comparison.gaps[0].reason, row.reason);
    const BusError& error = comparison.gaps[0].error;
    EXPECT_EQ(error.node_id, 0x10) << row.reason;
    EXPECT_EQ(error.index, row.index) << row.reason;
    EXPECT_EQ(error.sub_index, row.sub_index) << row.reason;
    EXPECT_EQ(error.text, row.reason.substr(row.reason.find(' ') + 1));
    EXPECT_THAT(comparison.differences, IsEmpty());
  }
}

TEST(DeviceComparisonTest, takes_a_count_in_four_bytes) {
  Device device({rpdo(1, {red})});
  device.set(0x1600, 0, {1, 0, 0, 0});
  const DeviceComparison comparison = device.compare({rpdo(1, {red})});
  EXPECT_THAT(comparison.differences, IsEmpty());
  EXPECT_THAT(comparison.gaps, IsEmpty());
}

TEST(DeviceComparisonTest, ends_at_the_first_answer_that_does_not_come) {
  Device device({rpdo(1, {red})}, false);
  const DeviceComparison comparison = device.compare({rpdo(1, {red}), rpdo(2, {red})});
  EXPECT_THAT(comparison.differences, IsEmpty());
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].what, "RPDO 1 and all that follows");
  EXPECT_EQ(comparison.gaps[0].error.kind, BusErrorKind::no_answer);
}

/// Loses every answer from the k-th on, for every k: there is always a gap, and never a difference.
TEST(DeviceComparisonTest, never_takes_silence_for_a_match) {
  const std::vector<PdoConfig> pdos{rpdo(1, {red, controlword}), tpdo(1, {red})};
  Device whole(pdos);
  int answers = 0;
  whole.bus.set_fault_rule([&](const CanFrame& frame) {
    answers += frame.id == 0x590 ? 1 : 0;
    return std::vector<CanDelivery>{{frame}};
  });
  whole.compare(pdos);
  ASSERT_GT(answers, 16);
  for (int heard = 0; heard < answers; ++heard) {
    Device device(pdos);
    int count = 0;
    device.bus.set_fault_rule([&](const CanFrame& frame) {
      const bool is_lost = frame.id == 0x590 && ++count > heard;
      return is_lost ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
    });
    const DeviceComparison comparison = device.compare(pdos);
    EXPECT_THAT(comparison.gaps, SizeIs(1)) << heard;
    EXPECT_THAT(comparison.differences, IsEmpty()) << heard;
  }
}

TEST(DeviceComparisonTest, names_the_search_that_failed) {
  Device device({});
  device.bus.set_state(CanStatus::interface_down);
  const DeviceComparison comparison = device.compare({});
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].what, "PDOs that the board file does not hold");
  EXPECT_EQ(comparison.gaps[0].error.kind, BusErrorKind::bus_fault);
}

TEST(DeviceComparisonTest, ends_when_stopped) {
  Device device({rpdo(1, {red})});
  device.bus.set_fault_rule([&](const CanFrame& frame) {
    if (frame.id == 0x590) {
      device.backend.stop();
    }
    return std::vector<CanDelivery>{{frame}};
  });
  const DeviceComparison comparison = device.compare({rpdo(1, {red}, 0x222), rpdo(2, {red})});
  EXPECT_THAT(comparison.differences,
              ElementsAre(Difference{"RPDO 1", "COB-ID", "0x0222", "0x0210"}));
  ASSERT_THAT(comparison.gaps, SizeIs(1));
  EXPECT_EQ(comparison.gaps[0].reason, "0x1400/2: stopped");
  EXPECT_EQ(comparison.gaps[0].error.kind, BusErrorKind::stopped);
}

}  // namespace
}  // namespace velmora_can_bridge
