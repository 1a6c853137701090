#include <chrono>
#include <utility>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "drive_watch.hpp"
#include "exit_status.hpp"
#include "ground/visible_text.hpp"
#include "report.hpp"
#include "requested_operation.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

/// One look at the drive, and a remark where it has not followed.
ShownDrive look(const CommandLineHost& host, CommandBridge& bridge, const std::string& device,
                const WatchedDrive& drive) {
  const DriveView view = bridge.ask([&](Bridge& board) { return look_at_drive(board, drive); });
  if (view.error) {
    return {};
  }
  if (has_not_followed(drive, view)) {
    print_diagnostic(host, device + " has not followed (yet): it shows " + drive_view_text(view));
  }
  return {drive_view_text(view)};
}

DriveView await(CommandBridge& bridge, CommandBus& bus, const WatchedDrive& drive,
                std::chrono::seconds patience) {
  const auto clock = bus.channel().open({});
  const auto end = clock->now() + patience;
  return bridge.ask([&](Bridge& board) {
    return await_drive(board, drive, [&](milliseconds time) {
      board.poll(time);
      bus.tick(time);
      return clock->now() >= end;
    });
  });
}

/// The operation fails when the drive is not there in time.
ShownDrive judge(const DriveView& view, std::chrono::seconds patience, OperationReport& report) {
  if (view.progress == DriveProgress::reached) {
    return {drive_view_text(view), true};
  }
  BusError error = view.error.value_or(BusError());
  if (view.error) {
    error.text = "the drive's state cannot be read: " + error.text;
  } else {
    error.text = "the drive has not followed" +
                 (view.progress == DriveProgress::given_up
                      ? std::string()
                      : " within " + std::to_string(patience.count()) + " s") +
                 ": it shows " + drive_view_text(view);
  }
  report.result.ok = false;
  report.error = std::move(error);
  return {view.error ? "" : drive_view_text(view)};
}

std::optional<ShownDrive> follow(const CommandLineHost& host, const RunArguments& arguments,
                                 CommandBridge& bridge, CommandBus& bus,
                                 const std::optional<WatchedDrive>& drive,
                                 OperationReport& report) {
  if (!report.result.ok) {
    return std::nullopt;
  }
  if (!drive) {
    if (arguments.wait != 0) {
      print_diagnostic(host, "--wait has nothing to wait for: the operation commands no drive");
    }
    return std::nullopt;
  }
  if (arguments.wait == 0) {
    return look(host, bridge, arguments.operation.device, *drive);
  }
  const std::chrono::seconds patience(arguments.wait);
  return judge(await(bridge, bus, *drive, patience), patience, report);
}

/// Whether the operation sets a mode that the bridge remembers for the operations behind it.
bool sets_motor_mode(const BoardFile& file, const OperationArguments& arguments) {
  const auto found = find_operation(file, arguments.board, arguments.device, arguments.operation);
  return found && found->operation->kind == "ci402_set_mode";
}

void print(const CommandLineHost& host, const RunArguments& arguments,
           const OperationReport& report, const std::optional<ShownDrive>& shown, bool sets_mode) {
  if (arguments.json) {
    print_result_json(host, report, shown);
    return;
  }
  print_result(host, report, shown);
  if (report.result.ok && sets_mode) {
    print_remark(host,
                 "the mode is known to this run alone; \"velmora-can-bridge script\" keeps it for "
                 "the operations behind it");
  }
}

}  // namespace

ExitStatus run_command(const CommandLineHost& host, const RunArguments& arguments) {
  const OperationArguments& operation = arguments.operation;
  std::optional<RequestedOperation> call = read_operation(host, operation);
  const auto bus = call ? CommandBus::open(host, arguments.bus, &call->file) : nullptr;
  if (!bus) {
    return ExitStatus::bad_input;
  }
  const auto drive = watched_drive(call->file, operation.device, operation.operation);
  const bool sets_mode = sets_motor_mode(call->file, operation);
  CommandBridge bridge(host, bus->channel(), std::move(call->file), sdo_times(arguments.bus),
                       [&](const Transfer& transfer) {
                         if (arguments.transfers) {
                           host.err << visible_text(transfer_text(transfer)) << '\n';
                         }
                       });
  OperationReport report = bridge.ask([&](Bridge& board) {
    return board.run(operation.device, operation.operation, call->payload,
                     RunOptions{Detail::result, arguments.force});
  });
  print_tolerated(host, report);
  const auto shown = follow(host, arguments, bridge, *bus, drive, report);
  print(host, arguments, report, shown, sets_mode);
  bridge.await_late_answers();
  return bus->finish(exit_status_of(report));
}

}  // namespace velmora_can_bridge
