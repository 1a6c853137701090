#include "help_table.hpp"

#include <algorithm>

#include "velmora_can_bridge/version.hpp"

namespace velmora_can_bridge {
namespace {

// Arguments that several commands have.
constexpr ArgumentHelp board{"BOARD", "", "the board file (YAML)", true};
constexpr ArgumentHelp device{
    "DEVICE", "", "a device of the board; a node id where the operation needs none", true};
constexpr ArgumentHelp operation{"OPERATION", "", "an operation of the device's node", true};
constexpr ArgumentHelp payload{"PAYLOAD", "",
                               "its values in order, or by name (red=255): numbers, with a unit "
                               "(0.5m/s), names of codes, hex:0F00, text:hello",
                               false, true};
constexpr ArgumentHelp raw{"--raw", "",
                           "the payload is bytes (0F00) and typed numbers (u16:500), unchecked"};
constexpr ArgumentHelp force{"--force", "",
                             "send RPDOs also with fields of the node that nobody knows"};
constexpr ArgumentHelp node{"NODE", "", "a node id, 1 to 127; hexadecimal after 0x", true};
constexpr ArgumentHelp object_index{"INDEX", "", "the object's index", true};
constexpr ArgumentHelp object_sub_index{"SUB", "", "the object's sub-index", true};
constexpr ArgumentHelp bus{"--bus", "BUS",
                           "a CAN interface, such as can0; sim, the default, is a simulated board "
                           "that starts afresh each time"};
constexpr ArgumentHelp interface { "--bus", "IFACE", "the CAN interface, such as can0", true };
constexpr ArgumentHelp simulated_board{"--board", "FILE",
                                       "the board file to simulate with --bus sim"};
constexpr ArgumentHelp timeout{"--timeout", "MS",
                               "milliseconds to wait for each SDO answer, 1 to 3600000 (500)"};
constexpr ArgumentHelp trace{"--trace", "FILE",
                             "write every frame to this file, as candump -L does"};
constexpr ArgumentHelp period{"--period", "MS", "milliseconds between two frames, 1 to 3600000",
                              true};
constexpr ArgumentHelp transfers{"--transfers", "", "print every transfer to the standard error"};
constexpr ArgumentHelp json{"--json", "", "print results as JSON, one object a line"};

CommandHelp run() {
  return {
      "run",
      "Execute one configured operation",
      "Executes one operation of the board file on one of its devices, and prints what came of "
      "it. On the simulated board every run starts afresh: nothing of an earlier one is left.",
      {board,
       device,
       operation,
       payload,
       raw,
       bus,
       timeout,
       trace,
       transfers,
       force,
       {"--wait", "[=SECONDS]",
        "wait until a drive has done what it was told, at most so long (10 seconds for --wait "
        "alone)"},
       json},
      {{"Colour the LED of the simulated board blue, and show what passes on its bus",
        "run robot.yaml led set_led_color 0 0 255 --transfers"},
       {"Set the speed of pump 3 on a robot", "run robot.yaml pumps set_pump 3 750 --bus can0"}}};
}

CommandHelp explain() {
  return {"explain",
          "Tell what one configured operation would do",
          "Tells which objects the operation would read and write, each RPDO before and after, and "
          "the answer if all goes well. It reads from the nodes, and sends nothing else.",
          {board,
           device,
           operation,
           payload,
           raw,
           bus,
           timeout,
           trace,
           force,
           {"--candump", "", "print the frames alone, as candump -L does, for canplayer"},
           json},
          {{"What driving one wheel sends", "explain robot.yaml left_wheel drive_patch 150"},
           {"The frames alone", "explain robot.yaml led set_led_blue 64 --candump"}}};
}

CommandHelp script() {
  return {
      "script",
      "Run the lines of a script, or those that you type, on one board",
      "Runs one operation a line, one after another on the same board, so that modes of operation "
      "and what RPDOs carry are kept from line to line. On a terminal without FILE it asks for "
      "lines, and the tabulator completes their words.\n"
      "A line is \"DEVICE OPERATION [PAYLOAD...]\", with \"run\" or \"explain\" before it or not; "
      "\"wait 200ms\"; or \"wait DEVICE CONDITION [TIME]\" for target_reached or a state of a "
      "drive, such as operation_enabled, 5s at most where TIME is left out. A comment begins "
      "with #.",
      {board,
       {"FILE", "", "the script; - for the standard input, which it is when left out"},
       bus,
       timeout,
       trace,
       force,
       {"--keep-going", "", "go on behind a line that has failed"},
       transfers,
       json},
      {{"Run a script on a robot", "script robot.yaml tour.txt --bus can0"},
       {"Type lines on a simulated board", "script robot.yaml"}}};
}

CommandHelp simulate() {
  return {"simulate",
          "Put a simulated board on a CAN interface",
          "Simulates all nodes of the board file on a CAN interface, so that other programs can "
          "talk to them. The nodes boot, and are pre-operational until nmt start. Ctrl-C ends it.\n"
          "A script makes them fail. A line of it is one fault: \"node NODE at TIME: FAULT\" or "
          "\"node NODE after N transfers of INDEX/SUB: FAULT\", where FAULT is no answer, answer "
          "TIME late, answer with N bytes, abort CODE, wrong toggle, hold INDEX/SUB, drive fault "
          "CODE, restart or no heartbeat. Transfers may be reads or writes alone. How long a fault "
          "lasts may stand behind it: for TIME, for N transfers, from then on. A comment begins "
          "with #. Each fault that strikes is printed, at the end those that never did.",
          {board,
           {"--bus", "IFACE",
            "the CAN interface on which the nodes stand, such as vcan0; there is none inside the "
            "program that others could reach",
            true},
           trace,
           {"--script", "FILE", "make the nodes fail as this script says"},
           {"--for", "SECONDS", "end after so many seconds, 1 to 31536000"}},
          {{"Simulate until Ctrl-C", "simulate robot.yaml --bus vcan0"},
           {"Simulate for a minute, and log the frames",
            "simulate robot.yaml --bus vcan0 --for 60 --trace sim.log"},
           {"Simulate nodes that fail", "simulate robot.yaml --bus vcan0 --script faults.txt"}}};
}

CommandHelp nmt() {
  return {"nmt",
          "Tell nodes which state to enter",
          "Sends one command of network management. Nodes do not confirm it, their heartbeats show "
          "it. RPDOs reach started nodes only.",
          {{"COMMAND", "", "start, stop, pre-operational, reset-node or reset-communication", true},
           {"NODE", "", "a node id, or all", true},
           bus,
           simulated_board,
           trace,
           json},
          {{"Start all nodes", "nmt start all --bus can0"},
           {"Reset one node", "nmt reset-node 0x10 --bus can0"}}};
}

CommandHelp sdo() {
  return {"sdo",
          "Read or write one object of a node",
          "Reads or writes one object of a node by SDO. On a CAN interface no board file is "
          "needed.",
          {},
          {{"Read the device type", "sdo read 0x10 0x1000 0 --bus can0"},
           {"Write the heartbeat time", "sdo write 0x10 0x1017 0 u16:500 --bus can0"}}};
}

CommandHelp sdo_read() {
  return {"sdo read",
          "Read one object",
          "Reads one object of a node and prints its bytes, also as a number or as text.",
          {node, object_index, object_sub_index, bus, timeout, simulated_board, trace, json},
          {{"The device type of a node", "sdo read 0x10 0x1000 0 --bus can0"},
           {"The name of a simulated node", "sdo read 0x10 0x1008 0 --board robot.yaml"}}};
}

CommandHelp sdo_write() {
  return {"sdo write",
          "Write one object",
          "Writes one object of a node. The images of RPDOs do not follow: where an RPDO carries "
          "the object, use run.",
          {node,
           object_index,
           object_sub_index,
           {"VALUE", "",
            "a number with its type (u16:500, s32:-1), hex:0F00 or text:hello; without a type "
            "where the board file tells it",
            true, true},
           bus,
           timeout,
           simulated_board,
           trace,
           json},
          {{"A heartbeat every half second", "sdo write 0x10 0x1017 0 u16:500 --bus can0"},
           {"The same on a simulated node", "sdo write 0x10 0x1017 0 u16:500 --board robot.yaml"}}};
}

CommandHelp operations() {
  return {"operations",
          "List devices and operations, with the payload that each expects",
          "Lists the devices of each node of the board file, and its operations with their kinds, "
          "payloads and labels.",
          {board, json},
          {{"As tables", "operations robot.yaml"},
           {"For a program, with descriptions", "operations robot.yaml --json"}}};
}

CommandHelp check() {
  return {"check",
          "Validate a board file, and compare it with the devices on a bus",
          "Checks the board file and prints all of its mistakes. With --bus it compares the PDOs "
          "of the file with those of the nodes, too, and transmission types where the file has "
          "them. It warns when RPDOs wait for a SYNC and none comes. It changes nothing on the "
          "nodes.",
          {board, {"--bus", "IFACE", "compare with the devices on this CAN interface"}, json},
          {{"Check the file", "check robot.yaml"},
           {"Compare it with a robot", "check robot.yaml --bus can0"}}};
}

CommandHelp watch() {
  return {"watch",
          "Show what passes on a bus, decoded",
          "Shows every frame on a CAN interface, decoded by the board file, one line each. It "
          "sends nothing. Ctrl-C ends it.",
          {board,
           interface,
           {"--for", "SECONDS", "end after that many seconds; 0.5 is half a second"},
           json},
          {{"Watch until Ctrl-C", "watch robot.yaml --bus can0"},
           {"Five seconds for a program", "watch robot.yaml --bus can0 --for 5 --json"}}};
}

CommandHelp sync() {
  return {"sync",
          "Send the SYNC, for which synchronous PDOs wait",
          "Sends the SYNC again and again, until Ctrl-C or so many frames. A bus has one producer: "
          "where a node sends the SYNC, leave it to that.",
          {interface, period, {"--count", "N", "end after so many frames"}, json},
          {{"A hundred times a second", "sync --bus can0 --period 10"},
           {"One SYNC alone", "sync --bus can0 --period 1 --count 1"}}};
}

CommandHelp heartbeat() {
  return {"heartbeat",
          "Send a heartbeat of the host, so that nodes notice when it ends",
          "Sends a heartbeat of the host, operational, again and again until Ctrl-C. Nodes that "
          "watch it stop by themselves when it ends.",
          {{"--node", "NODE_ID", "the node id of the host, which no node has", true},
           interface,
           period,
           json},
          {{"Ten times a second, as node 0x7E", "heartbeat --bus can0 --node 0x7E --period 100"},
           {"With the end as JSON", "heartbeat --bus can0 --node 126 --period 100 --json"}}};
}

CommandHelp demo() {
  return {"demo",
          "Run a tour over the example board",
          "Runs operations of every kind over the example board, simulated, and prints what each "
          "puts on the bus. No hardware is needed.",
          {json},
          {{"Take the tour", "demo"}, {"The results alone, as JSON", "demo --json"}}};
}

CommandHelp completion() {
  return {"completion",
          "Print the script that lets the tabulator complete words",
          "Prints a script for the shell. Where the shell has read it, the tabulator completes "
          "commands, options, CAN interfaces, board files, and the devices, operations and values "
          "of the board file on the line. An installed program needs it only where the package "
          "bash-completion is missing.",
          {{"SHELL", "", "bash", true}},
          {{"Switch it on in this shell", "completion bash", "source <(", ")"},
           {"In every shell to come", "completion bash", "echo 'source <(", ")' >>~/.bashrc"}}};
}

CommandHelp help() {
  return {"help",
          "Show the help of the program or of a command",
          "Without a command it lists all commands.",
          {{"COMMAND", "", "a command, with its sub-command if it has one", false, true}},
          {{"What run takes", "help run"}, {"What sdo read takes", "help sdo read"}}};
}

CommandHelp version() {
  return {"version",
          "Show the version of the program",
          "Prints the program's name and version on one line.",
          {},
          {{"Show it", "version"}, {"The same as an option", "--version"}}};
}

/// Whether nothing but a bus can be the reason.
bool is_of_bus(const ExitStatusHelp& row) {
  return row.status == ExitStatus::no_answer || row.status == ExitStatus::bus_fault;
}

}  // namespace

const std::vector<CommandHelp>& command_helps() {
  static const std::vector<CommandHelp> table{
      run(),      script(), explain(),    operations(), check(),  watch(),
      nmt(),      sdo(),    sdo_read(),   sdo_write(),  sync(),   heartbeat(),
      simulate(), demo(),   completion(), help(),       version()};
  return table;
}

std::string program_version() { return std::string(program_name) + " " + version_text; }

std::vector<const CommandHelp*> subcommands(std::string_view parent) {
  const std::string prefix = parent.empty() ? "" : std::string(parent) + " ";
  std::vector<const CommandHelp*> rows;
  for (const CommandHelp& command : command_helps()) {
    const std::string_view name = command.name;
    if (name.size() > prefix.size() && name.substr(0, prefix.size()) == prefix &&
        name.find(' ', prefix.size()) == std::string_view::npos) {
      rows.push_back(&command);
    }
  }
  return rows;
}

std::string example_line(const ExampleHelp& example) {
  return std::string(example.before) + program_name + " " + std::string(example.arguments) +
         std::string(example.behind);
}

const CommandHelp* find_command_help(std::string_view name) {
  const std::vector<CommandHelp>& table = command_helps();
  const auto row = std::find_if(table.begin(), table.end(),
                                [&](const CommandHelp& command) { return command.name == name; });
  return row == table.end() ? nullptr : &*row;
}

const std::vector<ExitStatusHelp>& exit_status_helps() {
  static const std::vector<ExitStatusHelp> table{
      {ExitStatus::success, "done"},
      {ExitStatus::operation_failed, "the operation failed"},
      {ExitStatus::bad_input, "wrong usage, or a mistake in the board file"},
      {ExitStatus::no_answer, "no answer"},
      {ExitStatus::bus_fault, "bus or interface fault"},
      {ExitStatus::interrupted, "interrupted"}};
  return table;
}

std::vector<ExitStatusHelp> exit_status_helps_of(const CommandHelp& command) {
  const bool has_bus =
      std::any_of(command.arguments.begin(), command.arguments.end(),
                  [](const ArgumentHelp& argument) { return argument.name == bus.name; });
  std::vector<ExitStatusHelp> rows = exit_status_helps();
  if (!has_bus && subcommands(command.name).empty()) {
    rows.erase(std::remove_if(rows.begin(), rows.end(), is_of_bus), rows.end());
  }
  return rows;
}

}  // namespace velmora_can_bridge
