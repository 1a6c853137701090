#include "can_channel_contract.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/patience.hpp"
#include "test_frames.hpp"

namespace velmora_can_bridge {
namespace {

using Frames = std::vector<CanFrame>;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<CanFilter> everything = {{0, 0}};
const CanFrame untouched = {0x7AB, 3, {9, 8, 7}};

class CanChannelContract : public testing::TestWithParam<ChannelCase> {
 protected:
  void send(const CanFrame& frame) {
    ASSERT_EQ(sender->send(frame, milliseconds(1000)), CanStatus::ok);
  }

  /// The next `count` frames.
  static Frames take(CanEndpoint& endpoint, std::size_t count) {
    Frames frames;
    CanFrame frame;
    while (frames.size() < count && endpoint.receive(frame, patience) == CanStatus::ok) {
      frames.push_back(frame);
    }
    return frames;
  }

  /// What has reached the endpoint until now: a frame of its own marks the end.
  Frames all_received(CanEndpoint& endpoint) {
    const CanFrame mark = {0x7FF, 2, {0xAB, 0xCD}};
    send(mark);
    Frames frames;
    CanFrame frame;
    while (endpoint.receive(frame, patience) == CanStatus::ok && !(frame == mark)) {
      frames.push_back(frame);
    }
    EXPECT_EQ(frame, mark) << "the end never came";
    return frames;
  }

  std::unique_ptr<CanChannel> channel = GetParam().open();
  std::unique_ptr<CanEndpoint> sender = channel->open({});
  std::unique_ptr<CanEndpoint> receiver = channel->open(everything);
};

TEST_P(CanChannelContract, frames_of_every_length_arrive_whole) {
  for (std::uint8_t length = 0; length <= 8; ++length) {
    CanFrame frame{static_cast<std::uint16_t>(0x100 + length), length, {}};
    for (std::uint8_t position = 0; position < length; ++position) {
      frame.data.at(position) = static_cast<std::uint8_t>(0xF0 + position);
    }
    send(frame);
    EXPECT_THAT(take(*receiver, 1), ElementsAre(frame));
  }
}

TEST_P(CanChannelContract, bytes_beyond_the_length_arrive_as_0) {
  send({0x123, 2, {1, 2, 3, 4, 5, 6, 7, 8}});

  EXPECT_THAT(take(*receiver, 1), ElementsAre(CanFrame{0x123, 2, {1, 2}}));
}

TEST_P(CanChannelContract, lowest_and_highest_identifier_arrive) {
  send({0x000, 1, {1}});
  send({0x7FF, 1, {2}});

  EXPECT_THAT(take(*receiver, 2), ElementsAre(CanFrame{0x000, 1, {1}}, CanFrame{0x7FF, 1, {2}}));
}

TEST_P(CanChannelContract, frames_keep_their_order) {
  Frames sent;
  for (std::uint8_t number = 0; number < 100; ++number) {
    sent.push_back({static_cast<std::uint16_t>(0x700 - number), 1, {number}});
    send(sent.back());
  }

  EXPECT_EQ(take(*receiver, sent.size()), sent);
}

TEST_P(CanChannelContract, every_other_endpoint_receives_a_frame_once) {
  const auto another = channel->open(everything);
  const CanFrame frame{0x123, 1, {1}};
  send(frame);

  EXPECT_THAT(all_received(*receiver), ElementsAre(frame));
  EXPECT_THAT(take(*another, 1), ElementsAre(frame));
}

TEST_P(CanChannelContract, own_frames_are_not_received) {
  EXPECT_EQ(receiver->send({0x123, 1, {1}}, milliseconds(1000)), CanStatus::ok);

  EXPECT_THAT(all_received(*receiver), IsEmpty());
}

struct FilterCase {
  std::vector<CanFilter> filters;
  std::vector<std::uint16_t> passing;
};

TEST_P(CanChannelContract, filters_let_through_what_any_of_them_matches) {
  const std::vector<std::uint16_t> all_ids = {0x000, 0x580, 0x585, 0x700, 0x705, 0x77F, 0x780};
  const std::vector<FilterCase> cases = {{{{0x585}}, {0x585}},
                                         {{{0x585, 0x7FF}, {0x705, 0x7FF}}, {0x585, 0x705}},
                                         {{{0x700, 0x780}}, {0x700, 0x705, 0x77F}},
                                         {{{0x7FF, 0x780}}, {0x780}},
                                         {{{0x700, 0x780}, {0x705, 0x7FF}}, {0x700, 0x705, 0x77F}},
                                         {{{0x123, 0}}, all_ids}};
  for (const FilterCase& row : cases) {
    std::vector<CanFilter> filters = row.filters;
    filters.push_back({0x7FF});  // for the mark of the end
    const auto endpoint = channel->open(filters);
    for (const std::uint16_t id : all_ids) {
      send({id, 0, {}});
    }
    std::vector<std::uint16_t> passed;
    for (const CanFrame& frame : all_received(*endpoint)) {
      passed.push_back(frame.id);
    }
    EXPECT_EQ(passed, row.passing);
  }
}

TEST_P(CanChannelContract, endpoint_without_filters_receives_nothing) {
  CanFrame frame = untouched;
  EXPECT_EQ(receiver->send({0x123, 1, {1}}, milliseconds(1000)), CanStatus::ok);
  all_received(*receiver);

  EXPECT_EQ(sender->receive(frame, milliseconds(1)), CanStatus::timed_out);
  EXPECT_EQ(frame, untouched);
}

TEST_P(CanChannelContract, frame_that_no_bus_carries_is_refused) {
  const std::vector<CanFrame> wrong = {
      {0x800, 1, {1}}, {0xFFFF, 1, {1}}, {0x123, 9, {1}}, {0x123, 255, {1}}};
  for (const CanFrame& frame : wrong) {
    EXPECT_EQ(sender->send(frame, milliseconds(1000)), CanStatus::failed);
  }

  EXPECT_THAT(all_received(*receiver), IsEmpty());
}

TEST_P(CanChannelContract, receive_without_a_frame_times_out) {
  for (const nanoseconds timeout : {nanoseconds(0), nanoseconds(1), nanoseconds(milliseconds(1)),
                                    nanoseconds(-1), nanoseconds::min()}) {
    CanFrame frame = untouched;
    EXPECT_EQ(receiver->receive(frame, timeout), CanStatus::timed_out) << timeout.count();
    EXPECT_EQ(frame, untouched);
  }
}

TEST_P(CanChannelContract, receive_without_a_frame_lets_its_time_pass) {
  CanFrame frame;
  const auto before = receiver->now();

  receiver->receive(frame, milliseconds(5));

  EXPECT_GE(receiver->now() - before, milliseconds(4)) << "a kernel's clock may be coarser";
}

TEST_P(CanChannelContract, receive_without_time_takes_what_is_there) {
  send({0x123, 1, {1}});
  send({0x124, 1, {2}});
  CanFrame frame;
  EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);

  const auto takes_the_second = [&] {
    return receiver->receive(frame, nanoseconds(0)) == CanStatus::ok;
  };
  EXPECT_TRUE(comes_true(takes_the_second));
  EXPECT_EQ(frame, (CanFrame{0x124, 1, {2}}));
}

TEST_P(CanChannelContract, frame_that_is_said_to_be_there_is_taken_at_once) {
  EXPECT_FALSE(receiver->has_frame());
  send({0x123, 1, {1}});
  send({0x124, 1, {2}});
  CanFrame frame;
  EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);

  const bool has_second = receiver->has_frame();
  EXPECT_TRUE(!has_second || receiver->receive(frame, nanoseconds(0)) == CanStatus::ok);
  EXPECT_FALSE(has_second && receiver->has_frame());
}

TEST_P(CanChannelContract, longest_time_is_waited_without_harm) {
  send({0x123, 1, {1}});
  CanFrame frame;

  EXPECT_EQ(receiver->receive(frame, nanoseconds::max()), CanStatus::ok);
  EXPECT_EQ(sender->send(frame, nanoseconds::max()), CanStatus::ok);
}

TEST_P(CanChannelContract, closed_endpoint_takes_no_part_any_more) {
  channel->open(everything).reset();
  const CanFrame frame{0x123, 1, {1}};
  send(frame);

  EXPECT_THAT(all_received(*receiver), ElementsAre(frame));
}

TEST_P(CanChannelContract, frames_of_several_threads_all_arrive) {
  constexpr std::uint8_t count = 100;
  const auto send_all = [&](std::uint8_t thread) {
    for (std::uint8_t number = 0; number < count; ++number) {
      EXPECT_EQ(sender->send({0x123, 2, {thread, number}}, patience), CanStatus::ok);
    }
  };
  std::thread first(send_all, std::uint8_t{1});
  std::thread second(send_all, std::uint8_t{2});
  // Not by waiting on the bus: a simulated clock would not wait for the threads.
  Frames frames;
  const auto all_came = [&] {
    const Frames more = received(*receiver);
    frames.insert(frames.end(), more.begin(), more.end());
    return frames.size() >= std::size_t{2} * count;
  };
  EXPECT_TRUE(comes_true(all_came));
  first.join();
  second.join();

  std::set<std::pair<int, int>> seen;
  for (const CanFrame& frame : frames) {
    seen.insert({frame.data[0], frame.data[1]});
  }
  EXPECT_EQ(seen.size(), 2U * count);
}

TEST_P(CanChannelContract, each_state_is_explained_with_the_name_of_the_interface) {
  std::set<std::string> texts;
  for (const CanStatus status : {CanStatus::ok, CanStatus::timed_out, CanStatus::queue_full,
                                 CanStatus::interface_down, CanStatus::interface_missing,
                                 CanStatus::bus_off, CanStatus::error_passive, CanStatus::failed}) {
    const std::string text = receiver->explain(status);
    EXPECT_THAT(text, testing::HasSubstr(GetParam().interface));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("\n")));
    texts.insert(text);
  }
  EXPECT_EQ(texts.size(), 8U) << "each has its own";
}

TEST_P(CanChannelContract, frame_that_waited_has_come_before_it_was_taken) {
  receiver->note_arrivals();
  CanFrame frame;
  const auto came_earlier = [&] {
    send({0x123, 1, {1}});
    sender->receive(frame, milliseconds(5));
    const auto before = receiver->now();
    EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);
    return receiver->arrival().time < before;
  };

  // A kernel may begin to stamp frames a moment after it was asked to.
  EXPECT_TRUE(comes_true(came_earlier));
  EXPECT_TRUE(came_earlier()) << "and from then on";
}

TEST_P(CanChannelContract, arrivals_never_go_back_and_are_not_later_than_now) {
  receiver->note_arrivals();
  const auto before = sender->now();
  CanFrame frame;
  auto latest = before;
  for (std::uint8_t number = 0; number < 20; ++number) {
    send({0x123, 1, {number}});
    send({0x123, 1, {number}});
    sender->receive(frame, nanoseconds(100000));
    EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);
    EXPECT_GE(receiver->arrival().time, latest);
    latest = receiver->arrival().time;
    EXPECT_LE(latest, receiver->now());
    EXPECT_EQ(receiver->arrival().lost, 0U);
  }
}

TEST_P(CanChannelContract, endpoint_that_was_not_asked_to_note_arrivals_answers_now) {
  send({0x123, 1, {1}});
  CanFrame frame;
  EXPECT_EQ(receiver->receive(frame, patience), CanStatus::ok);
  sender->receive(frame, milliseconds(1));

  const auto before = receiver->now();
  const CanArrival arrival = receiver->arrival();
  EXPECT_GE(arrival.time, before);
  EXPECT_LE(arrival.time, receiver->now());
  EXPECT_EQ(arrival.lost, 0U);
}

TEST_P(CanChannelContract, frames_that_waited_before_arrivals_were_noted_are_received_as_ever) {
  send({0x123, 1, {1}});
  send({0x123, 1, {2}});
  EXPECT_THAT(take(*receiver, 1), ElementsAre(CanFrame{0x123, 1, {1}}));
  receiver->note_arrivals();
  send({0x123, 1, {3}});

  EXPECT_THAT(take(*receiver, 2), ElementsAre(CanFrame{0x123, 1, {2}}, CanFrame{0x123, 1, {3}}));
  EXPECT_LE(receiver->arrival().time, receiver->now());
}

INSTANTIATE_TEST_SUITE_P(channels, CanChannelContract, testing::ValuesIn(channels_under_test()),
                         [](const testing::TestParamInfo<ChannelCase>& row) {
                           return row.param.name;
                         });

}  // namespace
}  // namespace velmora_can_bridge
