// An SDO server on a CAN interface that misbehaves in one way, for tools/vcan/misbehaviour. It
// shares no code with the rest of the project, so that no mistake can stand on both sides.
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Frames = std::vector<can_frame>;

/// Ends a server that nobody has ended.
constexpr unsigned longest_life_in_seconds = 300;

constexpr std::uint8_t toggle_bit = 0x10;
constexpr std::uint8_t abort_command = 0x80;

constexpr std::uint32_t general_error = 0x08000000;
constexpr std::uint32_t no_such_object = 0x06020000;
constexpr std::uint32_t wrong_length = 0x06070010;
constexpr std::uint32_t code_of_no_standard = 0x12345678;

/// Of an object that nobody here asks for.
constexpr std::uint16_t other_index = 0x2F00;

unsigned specifier(const can_frame& frame) { return frame.data[0] / 32U; }

bool is_abort(const can_frame& frame) { return specifier(frame) == 4; }

bool begins_transfer(const can_frame& request) {
  return specifier(request) == 1 || specifier(request) == 2;
}

can_frame frame_of(canid_t id, unsigned command, std::uint16_t index, std::uint8_t sub_index,
                   std::uint32_t number = 0) {
  can_frame frame{};
  frame.can_id = id;
  frame.can_dlc = 8;
  frame.data[0] = static_cast<std::uint8_t>(command);
  frame.data[1] = static_cast<std::uint8_t>(index % 256);
  frame.data[2] = static_cast<std::uint8_t>(index / 256);
  frame.data[3] = sub_index;
  for (unsigned position = 4; position < 8; ++position) {
    frame.data[position] = static_cast<std::uint8_t>(number % 256);
    number /= 256;
  }
  return frame;
}

std::uint16_t index_of(const can_frame& frame) {
  return static_cast<std::uint16_t>(frame.data[1] + 256 * frame.data[2]);
}

std::uint32_t number_of(const can_frame& frame) {
  std::uint32_t number = 0;
  for (unsigned position = 7; position >= 4; --position) {
    number = number * 256 + frame.data[position];
  }
  return number;
}

Bytes bytes_of(std::uint32_t number) {
  const can_frame frame = frame_of(0, 0, 0, 0, number);
  return {frame.data + 4, frame.data + 8};
}

/// Answers as it should: what a misbehaviour then spoils.
class SoundServer {
 public:
  explicit SoundServer(canid_t answer_id) : answer_id_(answer_id) {}

  Frames answer(const can_frame& request) {
    switch (specifier(request)) {
      case 0:
        return {take_segment(request)};
      case 1:
        return {begin_download(request)};
      case 2:
        return {begin_upload(request)};
      case 3:
        return {give_segment(request)};
      default:
        return {};
    }
  }

 private:
  can_frame about(const can_frame& request, unsigned command, std::uint32_t number = 0) const {
    return frame_of(answer_id_, command, index_of(request), request.data[3], number);
  }

  can_frame begin_upload(const can_frame& request) {
    const auto found = objects_.find({index_of(request), request.data[3]});
    if (found == objects_.end()) {
      return about(request, abort_command, no_such_object);
    }
    const auto size = static_cast<std::uint32_t>(found->second.size());
    if (size > 4) {
      bytes_ = found->second;
      return about(request, 0x41, size);
    }
    can_frame answer = about(request, 0x43U + 4U * (4U - size));
    std::copy(found->second.begin(), found->second.end(), answer.data + 4);
    return answer;
  }

  can_frame give_segment(const can_frame& request) {
    const std::size_t size = std::min<std::size_t>(bytes_.size(), 7);
    const bool is_last = size == bytes_.size();
    const auto unused = static_cast<unsigned>(7 - size);
    can_frame answer = frame_of(
        answer_id_, (request.data[0] & toggle_bit) + 2U * unused + (is_last ? 1U : 0U), 0, 0);
    std::copy_n(bytes_.begin(), size, answer.data + 1);
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(size));
    return answer;
  }

  can_frame begin_download(const can_frame& request) {
    const std::uint32_t size =
        (request.data[0] & 2U) != 0 ? 4U - request.data[0] / 4U % 4U : number_of(request);
    const auto found = objects_.find({index_of(request), request.data[3]});
    if (found == objects_.end()) {
      return about(request, abort_command, no_such_object);
    }
    if (size != found->second.size()) {
      return about(request, abort_command, wrong_length);
    }
    return about(request, 0x60);
  }

  /// What it brings is not looked at: the answers are what these tests are about.
  can_frame take_segment(const can_frame& request) const {
    return frame_of(answer_id_, 0x20U + (request.data[0] & toggle_bit), 0, 0);
  }

  const canid_t answer_id_;
  /// RPDO 1 carries 0x2000/0.
  const std::map<std::pair<std::uint16_t, std::uint8_t>, Bytes> objects_{
      {{0x1400, 0}, {2}},
      {{0x1400, 1}, bytes_of(0x221)},
      {{0x1400, 2}, {255}},
      {{0x1600, 0}, {1}},
      {{0x1600, 1}, bytes_of(0x20000020)},
      {{0x2000, 0}, {0x11, 0x22, 0x33, 0x44}},
      {{0x2001, 0}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}},
  };
  /// What is still to be uploaded.
  Bytes bytes_;
};

// Misbehaviours: what each makes of the sound answers to a request. `held` lasts from one request
// to the next.

struct Exchange {
  const can_frame& request;
  Frames& answers;
  Frames& held;
};

void nothing(const Exchange& /*exchange*/) {}

void silence(const Exchange& exchange) { exchange.answers.clear(); }

/// The bytes of an answer that mean something.
std::uint8_t meaning_bytes(const can_frame& answer) {
  const unsigned command = answer.data[0];
  switch (specifier(answer)) {
    case 0:
      return static_cast<std::uint8_t>(8 - command / 2 % 8);
    case 1:
      return 1;
    case 2:
      return static_cast<std::uint8_t>((command & 2U) != 0 ? 8 - command / 4 % 4 : 8);
    case 3:
      return 4;
    default:
      return 8;
  }
}

void shorten(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    answer.can_dlc = meaning_bytes(answer);
  }
}

void cut_off(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    answer.can_dlc = static_cast<std::uint8_t>(meaning_bytes(answer) - 1);
  }
}

void empty(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    answer.can_dlc = 0;
  }
}

void abort_with(const Exchange& exchange, std::uint16_t index, std::uint8_t sub_index,
                std::uint32_t code) {
  for (can_frame& answer : exchange.answers) {
    answer = frame_of(answer.can_id, abort_command, index, sub_index, code);
  }
}

void abort_without_object(const Exchange& exchange) { abort_with(exchange, 0, 0, general_error); }

void abort_of_another_object(const Exchange& exchange) {
  abort_with(exchange, other_index, 1, general_error);
}

void abort_with_unknown_code(const Exchange& exchange) {
  abort_with(exchange, index_of(exchange.request), exchange.request.data[3], code_of_no_standard);
}

void abort_with_four_bytes(const Exchange& exchange) {
  abort_with_unknown_code(exchange);
  for (can_frame& answer : exchange.answers) {
    answer.can_dlc = 4;
  }
}

/// Answers when the client has given up, and says so.
void answer_late(const Exchange& exchange) {
  if (is_abort(exchange.request)) {
    exchange.answers.swap(exchange.held);
    return;
  }
  exchange.held = std::move(exchange.answers);
  exchange.answers.clear();
}

can_frame other_answer(canid_t id) { return frame_of(id, 0x43, other_index, 1, 0x55555555); }

void answer_about_another_object(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    answer = other_answer(answer.can_id);
  }
}

void put_first(const Exchange& exchange, const can_frame& frame) {
  if (!exchange.answers.empty()) {
    exchange.answers.insert(exchange.answers.begin(), frame);
  }
}

/// A second client reads an object with each request, and gets its answer first.
void serve_second_client(const Exchange& exchange) {
  if (!exchange.answers.empty()) {
    put_first(exchange, other_answer(exchange.answers.front().can_id));
    put_first(exchange, frame_of(exchange.request.can_id, 0x40, other_index, 1));
  }
}

/// The second client is in the middle of a longer object.
void serve_segments_of_second_client(const Exchange& exchange) {
  if (!exchange.answers.empty()) {
    put_first(exchange, frame_of(exchange.answers.front().can_id, 0, 0x5555, 0x55, 0x55555555));
    put_first(exchange, frame_of(exchange.request.can_id, 0x60, 0, 0));
  }
}

void turn_toggle(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    const bool is_of_segment = !begins_transfer(exchange.request);
    answer.data[0] ^= is_of_segment ? toggle_bit : 0;
  }
}

/// Answers to an upload as to a download, and the other way round.
void mix_up_directions(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    answer.data[0] ^= 0x20;
  }
}

void answer_with_unknown_command(const Exchange& exchange) {
  for (can_frame& answer : exchange.answers) {
    answer.data[0] = 0xE0;
  }
}

void answer_twice(const Exchange& exchange) {
  const Frames once = exchange.answers;
  exchange.answers.insert(exchange.answers.end(), once.begin(), once.end());
}

/// Uploads of what the first answer tells, in segments with the first byte `segment` beside the
/// toggle bit; nothing else is spoiled.
void upload_as(const Exchange& exchange, unsigned first, std::uint32_t size, unsigned segment) {
  for (can_frame& answer : exchange.answers) {
    if (specifier(exchange.request) == 2) {
      answer = frame_of(answer.can_id, first, index_of(exchange.request), exchange.request.data[3],
                        size);
    } else if (specifier(exchange.request) == 3) {
      answer = frame_of(answer.can_id, segment + (exchange.request.data[0] & toggle_bit), 0, 0);
    }
  }
}

void upload_without_end(const Exchange& exchange) { upload_as(exchange, 0x40, 0, 0x00); }
void upload_nothing_without_end(const Exchange& exchange) { upload_as(exchange, 0x40, 0, 0x0E); }
void upload_more_than_announced(const Exchange& exchange) { upload_as(exchange, 0x41, 10, 0x00); }
void upload_fewer_than_announced(const Exchange& exchange) { upload_as(exchange, 0x41, 20, 0x01); }
void announce_most_there_can_be(const Exchange& exchange) {
  upload_as(exchange, 0x41, 0xFFFFFFFF, 0x01);
}

struct Behaviour {
  std::string_view name;
  void (*spoil)(const Exchange& exchange);
  /// Milliseconds between frames that nobody has asked for; negative: none are sent.
  int babbling_period = -1;
};

constexpr Behaviour behaviours[] = {
    {"sound", nothing},
    {"silence", silence},
    {"answers_shortened", shorten},
    {"answers_cut_off", cut_off},
    {"answers_empty", empty},
    {"aborts_without_object", abort_without_object},
    {"aborts_of_another_object", abort_of_another_object},
    {"aborts_with_unknown_code", abort_with_unknown_code},
    {"aborts_with_four_bytes", abort_with_four_bytes},
    {"answers_late", answer_late},
    {"answers_about_another_object", answer_about_another_object},
    {"answers_twice", answer_twice},
    {"second_client", serve_second_client},
    {"second_client_in_segments", serve_segments_of_second_client},
    {"toggle_turned", turn_toggle},
    {"directions_mixed_up", mix_up_directions},
    {"unknown_command", answer_with_unknown_command},
    {"upload_without_end", upload_without_end},
    {"upload_of_nothing_without_end", upload_nothing_without_end},
    {"upload_of_more_than_announced", upload_more_than_announced},
    {"upload_of_fewer_than_announced", upload_fewer_than_announced},
    {"upload_announced_as_4_GiB", announce_most_there_can_be},
    {"babble", nothing, 1},
    {"babble_and_silence", silence, 1},
    {"flood_and_silence", silence, 0},
};

int fail(const std::string& what) {
  static_cast<void>(std::fprintf(stderr, "misbehaving SDO server: %s\n", what.c_str()));
  return EXIT_FAILURE;
}

/// A raw socket on the interface; negative when there is none.
int open_socket(const char* interface) {
  const int socket = ::socket(PF_CAN, SOCK_RAW, CAN_RAW);
  sockaddr_can address{};
  address.can_family = AF_CAN;
  address.can_ifindex = static_cast<int>(::if_nametoindex(interface));
  const bool is_bound =
      socket >= 0 && address.can_ifindex != 0 &&
      ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  return is_bound ? socket : -1;
}

/// False when the interface took it neither at once nor after some time.
bool send(int socket, const can_frame& frame) {
  for (int attempts = 0; attempts < 1000; ++attempts) {
    if (::write(socket, &frame, sizeof(frame)) == sizeof(frame)) {
      return true;
    }
    if (errno != ENOBUFS) {
      return false;
    }
    ::usleep(1000);
  }
  return false;
}

/// What is sent in turns to whoever listens.
Frames babble(canid_t answer_id) {
  return {other_answer(answer_id), frame_of(answer_id, 0x60, other_index, 1),
          frame_of(0x123, 0xFF, 0xFFFF, 0xFF, 0xFFFFFFFF)};
}

/// Serves until the process is ended or the interface fails.
int serve(int socket, canid_t node_id, const Behaviour& behaviour) {
  SoundServer server(0x580 + node_id);
  const Frames unasked = babble(0x580 + node_id);
  Frames held;
  for (std::size_t turn = 0;; ++turn) {
    pollfd waiting{socket, POLLIN, 0};
    const int ready = ::poll(&waiting, 1, behaviour.babbling_period);
    if (ready == 0) {
      if (!send(socket, unasked[turn % unasked.size()])) {
        return fail("cannot send");
      }
      continue;
    }
    can_frame request{};
    if (ready < 0 || ::read(socket, &request, sizeof(request)) != sizeof(request)) {
      return fail("cannot receive");
    }
    if (request.can_id != 0x600 + node_id) {
      continue;
    }
    Frames answers = server.answer(request);
    behaviour.spoil({request, answers, held});
    for (const can_frame& answer : answers) {
      if (!send(socket, answer)) {
        return fail("cannot send");
      }
    }
  }
}

}  // namespace

/// INTERFACE NODE_ID BEHAVIOUR; without arguments it lists the behaviours.
int main(int count, char** arguments) {
  if (count != 4) {
    for (const Behaviour& behaviour : behaviours) {
      std::printf("%.*s\n", static_cast<int>(behaviour.name.size()), behaviour.name.data());
    }
    return EXIT_SUCCESS;
  }
  const auto* const behaviour =
      std::find_if(std::begin(behaviours), std::end(behaviours),
                   [&](const Behaviour& each) { return each.name == arguments[3]; });
  if (behaviour == std::end(behaviours)) {
    return fail(std::string("there is no behaviour ") + arguments[3]);
  }
  const int socket = open_socket(arguments[1]);
  if (socket < 0) {
    return fail(std::string("cannot open ") + arguments[1]);
  }
  ::alarm(longest_life_in_seconds);
  std::puts("ready");
  static_cast<void>(std::fflush(stdout));
  return serve(socket, static_cast<canid_t>(std::strtoul(arguments[2], nullptr, 0)), *behaviour);
}
