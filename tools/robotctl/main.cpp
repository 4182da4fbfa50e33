// robotctl: find robots, look at them and drive them from a shell. This file only puts the
// subcommands together.

#include "commands/Commands.h"
#include "core/Program.h"

int main(int argc, char** argv) {
  using namespace robotctl;
  return runProgram(argc, argv,
                    {
                        addDiscover,
                        addInfo,
                        addStatus,
                        addWatch,
                        addDrive,
                        addTake,
                        addMotion,
                        addAudio,
                        addLight,
                        addRecord,
                        addPlot,
                        // Looking at this machine.
                        addDoctor,
                        addSim,
                        addCompletion,
                    });
}
