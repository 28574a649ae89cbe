// contracts FILE PROCESS: tries what the headers of the ports promise on the machine of this file, and takes the source
// away meanwhile, by halting the process that is one. The beam is lit: on a machine of software, or in a laboratory.
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <machines/composed/Machine.h>
#include <verify/PortContracts.h>

#include "LaserSource.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const ::pid_t source = std::atoi(argv[2]);
  const auto violations =
      ixoverify::CheckPortContracts({.Options = {.Machines = {ixocamglue::ComposedMachine({example::SourceDriver()})},
                                                 .MachineFile = argv[1],
                                                 .Language = "en",
                                                 .Realtime = true},
                                     .Cut = [source] { (void)::kill(source, SIGSTOP); },
                                     .Heal = [source] { (void)::kill(source, SIGCONT); }});
  for (const ixoverify::TContractViolation& violation : violations)
    std::printf("%s: %s\n", violation.Port.c_str(), violation.Text.c_str());
  std::printf("violations: %zu\n", violations.size());
  return violations.empty() ? 0 : 1;
}
