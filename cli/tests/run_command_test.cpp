#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>

#include "command_line_fixture.hpp"
#include "support/full_disk.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* run_lamp_board = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      lamp: {base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings: [{index: 0x2000, sub_index: 1, bit_length: 16, field: level}]
    operations:
      set_level: {kind: pdo_write, pdo_number: 1, field: level}
      read_level: {kind: sdo_read, index: 0x2000, sub_index: 1}
      write_level: {kind: sdo_write, index: 0x2000, sub_index: 1, data_type: u16}
      read_nothing: {kind: sdo_read, index: 0x5FFF}
)";

class RunOnBus : public CommandLine {
 protected:
  RunOnBus() : path(write_file("lamp.yaml", run_lamp_board)) { plug_in(); }

  ExitStatus run_lamp(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"run", "--bus", "can0", path, "lamp"});
    return run(arguments);
  }

  static std::string text_of(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  std::string path;
};

TEST_F(RunOnBus, talks_to_the_node_of_the_interface) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  EXPECT_EQ(run_lamp({"read_level"}), ExitStatus::success);
  EXPECT_EQ(out, "ok: OK\ndata: 34 12\nvalue: 4660\n");
  EXPECT_EQ(opened, std::vector<std::string>{"can0"});
}

TEST_F(CommandLine, answer_of_run_is_told_in_words) {
  const std::string drive = write_file("drive.yaml", R"(
nodes:
  - node_id: 0x10
    device_od_map:
      claw: {profile: claw, base_index: 0x7040, homing_record: 0x2100}
    operations:
      query: {kind: claw_action, action: query}
      name: {kind: sdo_read, index: 0x1008}
      object: {kind: od_io_read}
)");
  run({"run", drive, "claw", "query"});
  EXPECT_EQ(out, "ok: OK\ndata: 00 00\nvalue: idle, unknown\n");
  run({"run", drive, "claw", "object", "1"});
  EXPECT_EQ(out, "ok: OK\ndata: 50 02\nvalue: 592, Switch on disabled\n");
  run({"run", drive, "claw", "name"});
  EXPECT_THAT(out, HasSubstr("\nvalue: \"Simulated node\"\n"));
  run({"run", drive, "claw", "query", "--json"});
  EXPECT_THAT(out, HasSubstr(R"("values":[{"index":8448,"sub_index":1,"value":0,"words":"idle"},)"
                             R"({"index":8448,"sub_index":2,"value":0,"words":"unknown"}])"));
}

TEST_F(RunOnBus, text_of_a_device_is_escaped) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({'a', 'b', 'c', 'd', 'e', 0x07}));
  const std::string named = write_file("named.yaml", R"(
nodes:
  - node_id: 0x10
    device_od_map: {lamp: {base_index: 0x2000}}
    objects: [{index: 0x2000, sub_index: 1, type: text}]
    operations: {read_level: {kind: sdo_read, index: 0x2000, sub_index: 1}}
)");
  run({"run", "--bus", "can0", named, "lamp", "read_level"});
  EXPECT_THAT(out, HasSubstr("value: \"abcde\\x07\"\n"));
}

TEST_F(RunOnBus, refusal_has_abort_code_and_words) {
  NodeOnBus lamp(can0, 0x10);
  EXPECT_EQ(run_lamp({"read_nothing"}), ExitStatus::operation_failed);
  EXPECT_EQ(err,
            "failed: SDO read failed at 0x5FFF/0 (abort 0x06020000, no object at this index)\n");
}

TEST_F(RunOnBus, silence_has_its_exit_status) {
  EXPECT_EQ(run_lamp({"read_level"}), ExitStatus::no_answer);
  EXPECT_EQ(err, "failed: SDO read failed at 0x2000/1 (no answer within 500 ms)\n");
  EXPECT_EQ(run_lamp({"write_level", "u16:1", "--timeout", "20"}), ExitStatus::no_answer);
  EXPECT_EQ(err,
            "failed: SDO write failed at 0x2000/1 (no answer within 20 ms; whether the node has "
            "taken the value is unknown)\n");
}

TEST_F(RunOnBus, interface_that_is_down_has_its_exit_status_and_remedy) {
  can0.set_state(CanStatus::interface_down);
  EXPECT_EQ(run_lamp({"read_level"}), ExitStatus::bus_fault);
  EXPECT_EQ(err,
            "failed: SDO read failed at 0x2000/1 (interface can0 is down (ip link set can0 up; "
            "before the first time: ip link set can0 type can bitrate 1000000, or what the board "
            "has))\n");
}

TEST_F(RunOnBus, interrupted_before_a_transfer_sends_nothing) {
  const auto listener = can0.open({{0, 0}});
  interrupted = true;
  EXPECT_EQ(run_lamp({"read_level"}), ExitStatus::interrupted);
  EXPECT_EQ(err, "failed: SDO read failed at 0x2000/1 (interrupted)\n");
  CanFrame frame;
  EXPECT_EQ(listener->receive(frame, std::chrono::nanoseconds(0)), CanStatus::timed_out);
}

TEST_F(RunOnBus, json_has_the_word_of_the_exit_status) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  run_lamp({"--json", "read_level"});
  EXPECT_EQ(out, R"({"operation":"read_level","device":"lamp","ok":true,"code":"done",)"
                 R"("data":[52,18],"message":"OK",)"
                 R"("values":[{"index":8192,"sub_index":1,"value":4660}]})"
                 "\n");
  can0.set_state(CanStatus::interface_missing);
  run_lamp({"--json", "read_level"});
  EXPECT_EQ(out, R"({"operation":"read_level","device":"lamp","ok":false,"code":"bus_fault",)"
                 R"("data":[],"message":"SDO read failed at 0x2000/1",)"
                 R"~("reason":"there is no interface can0 (ip link lists those that there are)"})~"
                 "\n");
}

TEST_F(RunOnBus, simulated_nodes_take_rpdos) {
  EXPECT_EQ(run({"run", "--transfers", path, "lamp", "set_level", "u16:5"}), ExitStatus::success);
  EXPECT_THAT(err, HasSubstr("node 0x10  RPDO 1     <- 05 00\n"));
  EXPECT_TRUE(opened.empty());
}

TEST_F(RunOnBus, trace_holds_every_frame_in_order) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  const std::string log = (folder / "frames.log").string();
  EXPECT_EQ(run_lamp({"--trace", log, "set_level", "u16:5"}), ExitStatus::success);
  std::ifstream file(log);
  std::vector<std::string> frames;
  for (std::string time, rest; file >> time && std::getline(file, rest);) {
    EXPECT_THAT(time, testing::MatchesRegex("\\([0-9]{10}\\.[0-9]{6}\\)"));
    frames.push_back(rest);
  }
  EXPECT_EQ(frames, (std::vector<std::string>{" can0 610#4000200100000000",
                                              " can0 590#4B00200134120000", " can0 210#0500"}));
}

TEST_F(RunOnBus, trace_that_cannot_be_written_keeps_everything_from_the_bus) {
  const auto listener = can0.open({{0, 0}});
  EXPECT_EQ(run_lamp({"--trace", "/nowhere/log", "read_level"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: cannot write /nowhere/log: No such file or directory\n");
  CanFrame frame;
  EXPECT_EQ(listener->receive(frame, std::chrono::nanoseconds(0)), CanStatus::timed_out);
}

TEST_F(RunOnBus, full_disk_under_the_trace_is_a_failure) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  const std::string log = (folder / "frames.log").string();
  {
    const FullDisk disk;
    EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::operation_failed);
  }
  EXPECT_THAT(out, StartsWith("ok: OK\n"));
  EXPECT_EQ(err, "velmora-can-bridge: cannot write all of " + log + "\n");
}

TEST_F(RunOnBus, trace_leaves_a_file_alone_that_only_begins_like_a_log) {
  const std::string line = "(1700000000.000000) can0 000#0100\n";
  for (const std::string& content :
       {std::string("(just a remark)\n"), line + "and a remark\n",
        std::string(line).append("\n").append(line), line + std::string(10'000, '('),
        line + "(1700000000.000000) can0 00000000#0100\n"}) {
    SCOPED_TRACE(content.substr(0, 100));
    const std::string log = write_file("notes", content);
    EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: " + log + " is not overwritten: it is no log of frames\n");
    EXPECT_EQ(text_of(log), content);
  }
}

TEST_F(RunOnBus, trace_leaves_a_file_alone_whose_unfinished_last_line_is_none_of_a_log) {
  const std::string content =
      "(1700000000.000000) can0 000#0100\n(1700000000.000000) can0 000#0100\nand a remark";
  const std::string log = write_file("notes", content);
  EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: " + log + " is not overwritten: it is no log of frames\n");
  EXPECT_EQ(text_of(log), content);
}

TEST_F(RunOnBus, trace_leaves_a_file_alone_whose_unfinished_last_line_is_too_long_for_a_log) {
  const std::string content = "(1700000000.000000) " + std::string(300, 'c') + " 000#0100";
  const std::string log = write_file("notes", content);
  EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::bad_input);
  EXPECT_EQ(text_of(log), content);
}

TEST_F(RunOnBus, trace_overwrites_a_log_whose_last_line_is_unfinished) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  const std::string log = write_file(
      "frames.log", "(1600000000.000000) can0 000#0100\n(1600000000.000000) can0 000#0100");
  EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::success);
  EXPECT_THAT(text_of(log), Not(HasSubstr("(1600000000.")));
}

TEST_F(RunOnBus, trace_overwrites_a_long_log) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  std::string content;
  while (content.size() < 10'000) {
    content += "(1700000000.000000) can0 601#4000100000000000\n";
  }
  const std::string log = write_file("frames.log", content);
  EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::success);
  EXPECT_LT(text_of(log).size(), 200U);
}

TEST_F(RunOnBus, trace_follows_no_link) {
  const std::string target = write_file("target", "");
  const std::string link = (folder / "link").string();
  for (const std::string& to : {target, (folder / "nothing").string()}) {
    std::filesystem::create_symlink(to, link);
    EXPECT_EQ(run_lamp({"--trace", link, "read_level"}), ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: " + link + " is not overwritten: it is a link\n");
    std::filesystem::remove(link);
  }
  EXPECT_EQ(text_of(target), "");
  EXPECT_FALSE(std::filesystem::exists(folder / "nothing"));
}

TEST_F(RunOnBus, trace_leaves_a_file_alone_that_has_two_names) {
  const std::string file = write_file("log", "");
  std::filesystem::create_hard_link(file, folder / "other");
  EXPECT_EQ(run_lamp({"--trace", file, "read_level"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: " + file +
                     " is not overwritten: it has another name, a hard link\n");
}

TEST_F(RunOnBus, trace_does_not_go_where_the_program_prints) {
  const std::string file = write_file("printed", "");
  const int printed = ::open(file.c_str(), O_WRONLY | O_APPEND);
  ASSERT_GE(printed, 0);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    const int kept = ::dup(stream);
    ::dup2(printed, stream);
    const ExitStatus status = run_lamp({"--trace", file, "read_level"});
    ::dup2(kept, stream);
    ::close(kept);
    EXPECT_EQ(status, ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: " + file +
                       " is not overwritten: what the program prints goes there\n");
  }
  ::close(printed);
}

TEST_F(RunOnBus, trace_goes_to_no_device_pipe_or_folder) {
  const std::string pipe = (folder / "pipe").string();
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& file : {std::string("/dev/null"), pipe, folder.string()}) {
    EXPECT_EQ(run_lamp({"--trace", file, "read_level"}), ExitStatus::bad_input);
    EXPECT_EQ(err, "velmora-can-bridge: " + file + " is not overwritten: it is no regular file\n");
  }
}

TEST_F(RunOnBus, trace_needs_the_name_of_a_file) {
  for (const std::string& file : {std::string(), std::string("-"), std::string("--json")}) {
    for (const std::vector<std::string>& trace :
         {std::vector<std::string>{"--trace", file}, {"--trace=" + file}}) {
      SCOPED_TRACE(testing::PrintToString(trace));
      std::vector<std::string> arguments = trace;
      arguments.emplace_back("read_level");
      EXPECT_EQ(run_lamp(arguments), ExitStatus::bad_input);
      EXPECT_THAT(err, StartsWith("velmora-can-bridge: --trace: \"" + file +
                                  "\" names no file for the frames"));
    }
  }
  EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(RunOnBus, trace_overwrites_logs_only) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  EXPECT_EQ(run_lamp({"--trace", path, "read_level"}), ExitStatus::bad_input);
  EXPECT_EQ(err, "velmora-can-bridge: " + path + " is not overwritten: it is no log of frames\n");
  for (const char* const content : {"", "(1700000000.000000) can0 000#0100\n"}) {
    const std::string log = write_file("frames.log", content);
    EXPECT_EQ(run_lamp({"--trace", log, "read_level"}), ExitStatus::success);
    EXPECT_NE(std::filesystem::file_size(log), std::string(content).size());
  }
}

}  // namespace
}  // namespace velmora_can_bridge
