#pragma once

#include "core/Context.h"

/// Each adds one subcommand, or one family. How to write one: core/Context.h. Add yours here and to
/// the list in main.cpp.
namespace robotctl {

void addDiscover(CLI::App& app, Context& context);
void addInfo(CLI::App& app, Context& context);
void addStatus(CLI::App& app, Context& context);
void addWatch(CLI::App& app, Context& context);
void addDrive(CLI::App& app, Context& context);
void addTake(CLI::App& app, Context& context);
void addMotion(CLI::App& app, Context& context);  ///< stand, lie, recover, walk, stop, estop
void addAudio(CLI::App& app, Context& context);
void addLight(CLI::App& app, Context& context);
void addRecord(CLI::App& app, Context& context);
void addPlot(CLI::App& app, Context& context);
void addDoctor(CLI::App& app, Context& context);
void addSim(CLI::App& app, Context& context);
void addCompletion(CLI::App& app, Context& context);  ///< completion, and the hidden manual

}  // namespace robotctl
