#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

/// Completion and manual page, made from the program's own description of its options, so that they
/// can't go stale.
namespace robotctl {

/// What may stand at the last of `words` (the command line without the program's name, the last
/// word as far as it is typed), one per line, with a tab and a description behind it. ":files"
/// alone in its line: names of files. `findRobots` is called, with the interface that the command
/// line or the environment names ("": none), where the id of a robot may stand.
[[nodiscard]] std::string completionWords(
    const CLI::App& app, const std::vector<std::string>& words,
    const std::function<std::vector<std::string>(const std::string& interface)>& findRobots);

/// The shells' part of it: both ask the program itself for the words.
[[nodiscard]] std::string bashCompletion();
[[nodiscard]] std::string zshCompletion();

/// The manual page robotctl(1), in roff.
[[nodiscard]] std::string manualPage(const CLI::App& app);

}  // namespace robotctl
