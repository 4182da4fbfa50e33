#include "core/Completion.h"

#include <net/if.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string_view>

namespace robotctl {
namespace {

using Words = std::vector<std::string>;
using RobotSearch = std::function<Words(const std::string& interface)>;

constexpr const char* kFiles = ":files\n";

bool isHidden(const CLI::App& app) {
  return app.get_group().empty();
}

std::string entry(const std::string& word, std::string description) {
  std::replace(description.begin(), description.end(), '\n', ' ');
  return word + '\t' + description + '\n';
}

bool begins(const std::string& text, const std::string& with) {
  return text.compare(0, with.size(), with) == 0;
}

/// The words of a CLI::IsMember, which stand in the type's description: "TEXT:{none,list,track}".
Words choicesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::size_t open = type.find('{');
  const std::size_t close = type.find('}', open == std::string::npos ? 0 : open);
  Words choices;
  if (open == std::string::npos || close == std::string::npos) return choices;
  for (std::size_t at = open + 1; at < close;) {
    const std::size_t comma = std::min(type.find(',', at), close);
    choices.push_back(type.substr(at, comma - at));
    at = comma + 1;
  }
  return choices;
}

Words interfaces() {
  Words known;
  struct if_nameindex* const all = ::if_nameindex();
  if (all == nullptr) return known;
  for (const struct if_nameindex* one = all; one->if_index != 0; ++one) {
    known.emplace_back(one->if_name);
  }
  ::if_freenameindex(all);
  return known;
}

/// What the network calls itself is typed into somebody's shell: nothing that a shell would obey.
bool isHarmless(const std::string& id) {
  const auto plain = [](char one) {
    return (one >= '0' && one <= '9') || (one >= 'A' && one <= 'Z') || (one >= 'a' && one <= 'z') ||
           one == '_' || one == '.' || one == '-';
  };
  return !id.empty() && id[0] != '-' && std::all_of(id.begin(), id.end(), plain);
}

/// Which interface the line (or the environment) names.
std::string interfaceOf(const Words& words) {
  const char* const fromEnvironment = std::getenv("ROBOTCTL_INTERFACE");
  std::string named = fromEnvironment != nullptr ? fromEnvironment : "";
  constexpr std::string_view kOption = "--interface";
  for (std::size_t i = 0; i + 2 < words.size(); ++i) {
    if (words[i] == kOption) named = words[words[i + 1] == "=" ? i + 2 : i + 1];
    if (begins(words[i], "--interface=")) named = words[i].substr(kOption.size() + 1);
  }
  return named;
}

struct Typed {
  const Words& words;
  const RobotSearch& findRobots;
};

Words candidates(const CLI::Option& option, const Typed& typed) {
  if (option.check_lname("interface")) return interfaces();
  if (!option.check_lname("robot")) return choicesOf(option);
  Words ids = typed.findRobots(interfaceOf(typed.words));
  ids.erase(std::remove_if(ids.begin(), ids.end(), [](const auto& id) { return !isHarmless(id); }),
            ids.end());
  return ids;
}

std::string valuesOf(const CLI::Option& option, const std::string& begun, const Typed& typed) {
  if (option.get_type_name().find("FILE") != std::string::npos) return kFiles;
  const Words words = candidates(option, typed);
  std::string text;
  for (const std::string& word : words) {
    if (begins(word, begun)) text += entry(word, option.get_description());
  }
  return text;
}

const CLI::Option* optionNamed(const CLI::App* app, const std::string& name) {
  for (; app != nullptr; app = app->get_parent()) {
    if (const CLI::Option* option = app->get_option_no_throw(name); option != nullptr)
      return option;
  }
  return nullptr;
}

const CLI::App* subcommandNamed(const CLI::App& app, const std::string& name) {
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (sub->check_name(name)) return sub;
  }
  return nullptr;
}

bool looksLikeOption(const std::string& word) {
  return word.size() > 1 && word[0] == '-' && word[1] != '.' && (word[1] < '0' || word[1] > '9');
}

/// Where on the command line the last word stands.
struct Place {
  const CLI::App* app;
  const CLI::Option* waiting = nullptr;  // for its value
  std::size_t positionals = 0;
};

Place placeOf(const CLI::App& app, const Words& words) {
  Place place{&app};
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "=") continue;  // the shell makes three words of --option=value
    if (place.waiting != nullptr) {
      place.waiting = nullptr;
    } else if (looksLikeOption(word)) {
      const CLI::Option* option = optionNamed(place.app, word);
      if (option != nullptr && option->get_items_expected_max() > 0) place.waiting = option;
    } else if (const CLI::App* sub = subcommandNamed(*place.app, word); sub != nullptr) {
      place.app = sub;
    } else {
      ++place.positionals;
    }
  }
  return place;
}

std::string optionsOf(const CLI::App* app, const std::string& begun) {
  std::string text;
  for (; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* option : app->get_options()) {
      if (option->get_group().empty()) continue;
      for (const std::string& name : option->get_lnames()) {
        const std::string word = "--" + name;
        const bool known = text.find(word + '\t') != std::string::npos;  // --help is everybody's
        if (begins(word, begun) && !known) text += entry(word, option->get_description());
      }
    }
  }
  return text;
}

std::string subcommandsOf(const CLI::App& app, const std::string& begun) {
  std::string text;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!isHidden(*sub) && begins(sub->get_name(), begun)) {
      text += entry(sub->get_name(), sub->get_description());
    }
  }
  return text;
}

std::string positionalOf(const CLI::App& app, std::size_t index, const std::string& begun,
                         const Typed& typed) {
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_positional()) continue;
    const auto takes = static_cast<std::size_t>(std::max(option->get_items_expected_max(), 1));
    if (index < takes) return valuesOf(*option, begun, typed);
    index -= takes;
  }
  return {};
}

constexpr const char* kBash =
    R"(# bash completion of robotctl; load it with: source <(robotctl completion bash)
_robotctl() {
  local line
  COMPREPLY=()
  local begun=${COMP_WORDS[COMP_CWORD]}
  [[ $begun == '=' ]] && begun=
  while IFS= read -r line; do
    if [[ $line == :files ]]; then
      compopt -o filenames 2>/dev/null
      while IFS= read -r line; do COMPREPLY+=("$line"); done < <(compgen -f -- "$begun")
    else
      COMPREPLY+=("${line%%$'\t'*}")
    fi
  done < <("${COMP_WORDS[0]}" completion words "${COMP_WORDS[@]:1:COMP_CWORD-1}" "$begun" 2>/dev/null)
}
complete -F _robotctl robotctl
)";

constexpr const char* kZsh = R"(#compdef robotctl
# zsh completion of robotctl; load it with: source <(robotctl completion zsh)
_robotctl() {
  local line
  local -a found
  while IFS= read -r line; do
    if [[ $line == :files ]]; then
      _files
    else
      found+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}")
    fi
  done < <("${words[1]}" completion words "${(@)words[2,CURRENT]}" 2>/dev/null)
  (( ${#found} )) && _describe robotctl found
}
if [[ $funcstack[1] == _robotctl ]]; then
  _robotctl "$@"
else
  compdef _robotctl robotctl
fi
)";

}  // namespace

std::string completionWords(const CLI::App& app, const Words& words,
                            const RobotSearch& findRobots) {
  const Typed typed{words, findRobots};
  const std::string begun = words.empty() ? std::string() : words.back();
  const Place place = placeOf(app, words);
  if (place.waiting != nullptr) return valuesOf(*place.waiting, begun == "=" ? "" : begun, typed);
  if (looksLikeOption(begun) || begun == "-")
    return optionsOf(place.app, begun == "-" ? "--" : begun);
  return subcommandsOf(*place.app, begun) +
         positionalOf(*place.app, place.positionals, begun, typed);
}

std::string bashCompletion() {
  return kBash;
}

std::string zshCompletion() {
  return kZsh;
}

}  // namespace robotctl
