#include "velmora_can_bridge/simulator/object_dictionary.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// One object of each sort; 0x2000 has no sub-index 0.
ObjectDictionary sample() {
  ObjectDictionary dictionary;
  dictionary.add(0x2000, 1, {ObjectAccess::read_write, {0x11, 0x22}});
  dictionary.add(0x2000, 2, {ObjectAccess::read_only, {0x33}});
  dictionary.add(0x2000, 3, {ObjectAccess::write_only, {0x44}});
  dictionary.add(0x2001, 0, {ObjectAccess::read_write, {'a', 'b'}, true, 4});
  dictionary.add(0x2002, 0, {ObjectAccess::read_write, {}});
  return dictionary;
}

std::optional<Bytes> value_of(const ObjectDictionary& dictionary, const ObjectAddress& at) {
  const ObjectEntry* entry = dictionary.find(at.index, at.sub_index);
  return entry == nullptr ? std::nullopt : std::make_optional(entry->value);
}

TEST(HeldObject, keeps_its_value) {
  ObjectDictionary dictionary = sample();
  dictionary.hold({0x2000, 1});

  EXPECT_EQ(dictionary.download(0x2000, 1, {9, 9}), std::nullopt);
  EXPECT_TRUE(dictionary.store(0x2000, 1, {8, 8}));
  EXPECT_FALSE(dictionary.store(0x2000, 1, {8}));
  EXPECT_EQ(dictionary.download(0x2000, 1, {9}), SdoAbort::value_too_short);
  EXPECT_EQ(value_of(dictionary, {0x2000, 1}), (Bytes{0x11, 0x22}));

  dictionary.release({0x2000, 1});
  EXPECT_TRUE(dictionary.store(0x2000, 1, {8, 8}));
  EXPECT_EQ(value_of(dictionary, {0x2000, 1}), (Bytes{8, 8}));
}

struct UploadCase {
  std::string name;
  ObjectAddress at;
  UploadResult expected;
};

void PrintTo(const UploadCase& row, std::ostream* out) { *out << row.name; }

class UploadTest : public testing::TestWithParam<UploadCase> {};

TEST_P(UploadTest, answers_with_bytes_or_abort) {
  const ObjectDictionary dictionary = sample();

  EXPECT_EQ(dictionary.upload(GetParam().at.index, GetParam().at.sub_index), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    all, UploadTest,
    testing::Values(
        UploadCase{"read_write", {0x2000, 1}, Bytes{0x11, 0x22}},
        UploadCase{"read_only", {0x2000, 2}, Bytes{0x33}},
        UploadCase{"variable_length", {0x2001, 0}, Bytes{'a', 'b'}},
        UploadCase{"no_bytes", {0x2002, 0}, Bytes{}},
        UploadCase{"write_only", {0x2000, 3}, Unexpected{SdoAbort::read_of_write_only}},
        UploadCase{"absent_index", {0x2003, 1}, Unexpected{SdoAbort::no_such_object}},
        UploadCase{"absent_sub_index", {0x2000, 4}, Unexpected{SdoAbort::no_such_sub_index}},
        UploadCase{"absent_sub_index_0", {0x2000, 0}, Unexpected{SdoAbort::no_such_sub_index}},
        UploadCase{"lowest_address", {0x0000, 0}, Unexpected{SdoAbort::no_such_object}},
        UploadCase{"highest_address", {0xFFFF, 255}, Unexpected{SdoAbort::no_such_object}}),
    [](const testing::TestParamInfo<UploadCase>& row) { return row.param.name; });

struct DownloadCase {
  std::string name;
  ObjectAddress at;
  Bytes data;
  std::optional<SdoAbort> expected;
};

void PrintTo(const DownloadCase& row, std::ostream* out) { *out << row.name; }

class DownloadTest : public testing::TestWithParam<DownloadCase> {};

TEST_P(DownloadTest, takes_the_bytes_or_aborts_without_a_change) {
  ObjectDictionary dictionary = sample();
  const DownloadCase& row = GetParam();
  const std::optional<Bytes> before = value_of(dictionary, row.at);

  EXPECT_EQ(dictionary.download(row.at.index, row.at.sub_index, row.data), row.expected);

  EXPECT_EQ(value_of(dictionary, row.at), row.expected ? before : std::make_optional(row.data));
}

INSTANTIATE_TEST_SUITE_P(
    all, DownloadTest,
    testing::Values(
        DownloadCase{"read_write", {0x2000, 1}, {0xAA, 0xBB}, {}},
        DownloadCase{"write_only", {0x2000, 3}, {0xAA}, {}},
        DownloadCase{"variable_length_longest", {0x2001, 0}, {1, 2, 3, 4}, {}},
        DownloadCase{"variable_length_without_bytes", {0x2001, 0}, {}, {}},
        DownloadCase{"size_0_without_bytes", {0x2002, 0}, {}, {}},
        DownloadCase{"too_long", {0x2000, 1}, {1, 2, 3}, SdoAbort::value_too_long},
        DownloadCase{"too_short", {0x2000, 1}, {1}, SdoAbort::value_too_short},
        DownloadCase{"no_bytes", {0x2000, 1}, {}, SdoAbort::value_too_short},
        DownloadCase{"write_only_too_long", {0x2000, 3}, {1, 2}, SdoAbort::value_too_long},
        DownloadCase{"beyond_the_maximum", {0x2001, 0}, {1, 2, 3, 4, 5}, SdoAbort::value_too_long},
        DownloadCase{"size_0_too_long", {0x2002, 0}, {1}, SdoAbort::value_too_long},
        DownloadCase{"read_only", {0x2000, 2}, {0xAA}, SdoAbort::write_of_read_only},
        DownloadCase{"access_before_length", {0x2000, 2}, {1, 2, 3}, SdoAbort::write_of_read_only},
        DownloadCase{"absent_index", {0x1FFF, 1}, {1, 2}, SdoAbort::no_such_object},
        DownloadCase{"absent_sub_index", {0x2000, 4}, {1, 2}, SdoAbort::no_such_sub_index}),
    [](const testing::TestParamInfo<DownloadCase>& row) { return row.param.name; });

TEST(ObjectDictionaryTest, refused_download_creates_no_object) {
  ObjectDictionary dictionary = sample();

  dictionary.download(0x3000, 0, {1});
  dictionary.download(0x2000, 4, {1});

  EXPECT_EQ(dictionary.addresses().size(), sample().addresses().size());
}

TEST(ObjectDictionaryTest, add_replaces_only_the_object_at_the_address) {
  ObjectDictionary dictionary = sample();

  dictionary.add(0x2000, 2, {ObjectAccess::read_write, {7, 8, 9}});

  EXPECT_EQ(dictionary.upload(0x2000, 2), UploadResult(Bytes{7, 8, 9}));
  EXPECT_EQ(dictionary.download(0x2000, 2, {1, 2, 3}), std::nullopt);
  EXPECT_EQ(dictionary.upload(0x2000, 1), UploadResult(Bytes{0x11, 0x22}));
}

TEST(ObjectDictionaryTest, store_passes_over_the_access) {
  ObjectDictionary dictionary = sample();

  EXPECT_TRUE(dictionary.store(0x2000, 2, {0xAA}));
  EXPECT_EQ(value_of(dictionary, {0x2000, 2}), Bytes{0xAA});
}

TEST(ObjectDictionaryTest, store_keeps_to_addresses_and_lengths) {
  ObjectDictionary dictionary = sample();

  EXPECT_FALSE(dictionary.store(0x2003, 0, {1}));
  EXPECT_FALSE(dictionary.store(0x2000, 4, {1}));
  EXPECT_FALSE(dictionary.store(0x2000, 1, {1}));
  EXPECT_FALSE(dictionary.store(0x2000, 1, {1, 2, 3}));
  EXPECT_EQ(value_of(dictionary, {0x2000, 1}), (Bytes{0x11, 0x22}));
}

TEST(ObjectDictionaryTest, addresses_are_ordered) {
  ObjectDictionary dictionary;
  for (const auto& [index, sub_index] : {std::pair{0x3000, 1}, {0x2000, 9}, {0x2000, 0}}) {
    dictionary.add(static_cast<std::uint16_t>(index), static_cast<std::uint8_t>(sub_index), {});
  }

  std::vector<std::pair<int, int>> seen;
  for (const ObjectAddress& at : dictionary.addresses()) {
    seen.emplace_back(at.index, at.sub_index);
  }

  EXPECT_THAT(
      seen, testing::ElementsAre(std::pair(0x2000, 0), std::pair(0x2000, 9), std::pair(0x3000, 1)));
}

}  // namespace
}  // namespace velmora_can_bridge
