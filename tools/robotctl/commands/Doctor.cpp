#include <string>
#include <utility>

#include "commands/Commands.h"
#include "doctor/Board.h"
#include "doctor/Machine.h"
#include "doctor/Network.h"
#include "doctor/Peers.h"
#include "doctor/RealTime.h"
#include "doctor/Report.h"
#include "doctor/SharedMemory.h"
#include "doctor/Versions.h"

namespace robotctl {
namespace {

/// In the order in which people read them; the system's own first, where one thing rests on
/// another.
doctor::Findings examine(const doctor::Machine& machine, const Context& context) {
  using namespace doctor;
  // First: it forks, and there are no threads yet.
  Findings realTime = checkRealTime(machine.board);
  LogCapture log(context.options.verbose);
  Findings findings = checkSetUp(machine, context.options);
  const auto interfaces = readInterfaces();
  append(findings, checkNetwork(interfaces, machine));
  context.interrupts.check();
  if (machine.board) append(findings, checkBoard());
  PeerReport peers = checkPeers(machine, interfaces, context, log);
  append(findings, std::move(peers.findings));
  if (machine.board) {
    append(findings, checkSharedMemory(!peers.robots.empty(), context.interrupts, log));
  }
  append(findings, checkVersions(peers.robots));
  append(findings, std::move(realTime));
  return findings;
}

ExitCode diagnose(const Context& context) {
  const doctor::Machine machine = doctor::lookAtMachine(context.options);
  context.output.note("Looking at this machine and for robots ...");
  const doctor::Findings findings = examine(machine, context);
  if (context.options.json) {
    context.output.json(doctor::jsonReport(machine.deployment(), findings));
  } else {
    context.output.line(
        doctor::textReport("This machine: " + std::string(machine.deployment()), findings));
  }
  return doctor::count(findings, doctor::Verdict::kProblem) == 0 ? ExitCode::kDone
                                                                 : ExitCode::kRefused;
}

}  // namespace

void addDoctor(CLI::App& app, Context& context) {
  CLI::App& command = *app.add_subcommand(
      "doctor", "Looks for what keeps this machine and its robots apart, and names the cures");
  command.footer(
      "It looks at interfaces and multicast, DDS peers and robots, versions and real-time rights,\n"
      "on a robot's board at the shared-memory daemon, the application lock and the shared memory "
      "too.\n"
      "It never moves a robot and takes no control. Exit status: 1 when there is a problem; "
      "warnings\n"
      "don't count.");
  context.onSelected(command, [&context] { return diagnose(context); });
}

}  // namespace robotctl
