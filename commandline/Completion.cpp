// What a shell offers: behind a command's words its sub-commands and options, behind an option its values. Both scripts
// are tables by the words of the command so far, and a function that walks the line.
#include <functional>
#include <string_view>

#include "commandline/Help.h"
#include "ixocamglue/support/Lists.h"

namespace ixocommandline {
namespace {

// 'text' for a shell.
std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// What a value is: "@" for nothing that can be offered, "@file", "@dir", else the choices.
std::string KindOf(TOption option) {
  std::string choices = Joined(option.Choices(), {}, " ");
  if (!choices.empty()) return choices;
  const std::string type = option.IsArgument() ? option.Name() : option.ValueType();
  if (type.starts_with("FILE") || type.starts_with("DEVICE")) return "@file";
  return type.starts_with("DIR") ? "@dir" : "@";
}

// "name:description" of zsh.
std::string Described(std::string_view name, std::string_view description) {
  std::string text;
  for (const char c : name) text += c == ':' ? std::string("\\:") : std::string(1, c);
  return text + ":" + std::string(description);
}

using TLines = std::function<std::vector<std::string>(TCommand)>;

void AddCases(TCommand command, const std::string& words, const std::string& function, bool falls, const TLines& lines,
              std::string& script) {
  std::string body;
  for (const std::string& line : lines(command)) body += " " + Quoted(line);
  if (!body.empty()) body = "      printf '%s\\n'" + body + "\n";
  if (falls && command.IsVariant())
    body += "      " + function + " " + Quoted(words.substr(0, words.rfind(' '))) + "\n";
  if (!body.empty()) script += "    " + Quoted(words) + ")\n" + body + "      ;;\n";
  for (const TCommand sub : command.Commands())
    AddCases(sub, words + (words.empty() ? "" : " ") + sub.Name(), function, falls, lines, script);
}

// A function of the script that prints `lines` of the command whose words are its argument, and where it `falls` those
// of the commands above whose options hold as well.
std::string Table(TCommand program, const std::string& what, bool falls, const TLines& lines) {
  const std::string function = "_" + program.Name() + "_" + what;
  std::string script = function + "() {\n  case $1 in\n";
  AddCases(program, "", function, falls, lines, script);
  return script + "  esac\n}\n";
}

std::vector<std::string> Commands(TCommand command) {
  std::vector<std::string> names;
  for (const TCommand sub : command.Commands()) names.push_back(sub.Name());
  return names;
}

std::vector<std::string> DescribedCommands(TCommand command) {
  std::vector<std::string> lines;
  for (const TCommand sub : command.Commands()) lines.push_back(Described(sub.Name(), sub.About()));
  return lines;
}

// "--json", "--plot=@file".
std::vector<std::string> Options(TCommand command) {
  std::vector<std::string> lines;
  for (const TOption option : command.Options())
    for (const std::string& name : option.Names())
      lines.push_back(option.HasValue() ? name + "=" + KindOf(option) : name);
  return lines;
}

std::vector<std::string> DescribedOptions(TCommand command) {
  std::vector<std::string> lines;
  for (const TOption option : command.Options())
    for (const std::string& name : option.Names()) lines.push_back(Described(name, option.About()));
  return lines;
}

// Of the arguments the first: where there are more, they are of one kind.
std::vector<std::string> Argument(TCommand command) {
  const auto arguments = command.Arguments();
  return arguments.empty() ? std::vector<std::string>{} : std::vector<std::string>{KindOf(arguments.front())};
}

// A script with the program's name.
std::string Named(TCommand program, std::string script) {
  constexpr std::string_view here = "PROGRAM";
  const std::string name = program.Name();
  for (std::size_t at = 0; (at = script.find(here, at)) != std::string::npos; at += name.size())
    script.replace(at, here.size(), name);
  return script;
}

constexpr const char* kBashHead = "# Completion of PROGRAM for bash, made by `PROGRAM completion bash`.\n";
constexpr const char* kZshHead =
    "#compdef PROGRAM\n# Completion of PROGRAM for zsh, made by `PROGRAM completion zsh`.\n";

constexpr const char* kBash = R"sh(_PROGRAM() {
  local current=${COMP_WORDS[COMP_CWORD]} at= option= kind= offered= rest= word i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    if [ "$word" = = ]; then
      continue
    elif [ -n "$option" ]; then
      option=
    elif [[ $word == -* ]]; then
      kind=$(_PROGRAM_options "$at" | grep -m1 -e "^$word=") && option=$word
    elif _PROGRAM_commands "$at" | grep -qx -e "$word"; then
      at+=${at:+ }$word
    else
      rest=1
    fi
  done
  [ "$current" != = ] || current=
  if [ -n "$option" ]; then
    kind=${kind#*=}
  elif [[ $current == -* ]]; then
    kind=$(_PROGRAM_options "$at" | sed 's/=.*//')
  else
    [ -n "$rest" ] || offered=$(_PROGRAM_commands "$at")
    kind=$(_PROGRAM_argument "$at")
  fi
  local IFS=$' \t\n'
  COMPREPLY=($(compgen -W "$offered" -- "$current"))
  IFS=$'\n'
  case $kind in
    @) ;;
    @file) compopt -o filenames 2>/dev/null; COMPREPLY+=($(compgen -f -- "$current")) ;;
    @dir) compopt -o filenames 2>/dev/null; COMPREPLY+=($(compgen -d -- "$current")) ;;
    *) IFS=$' \t\n'; COMPREPLY+=($(compgen -W "$kind" -- "$current")) ;;
  esac
}
complete -F _PROGRAM PROGRAM
)sh";

constexpr const char* kZsh = R"sh(_PROGRAM() {
  local at= option= kind= rest= word i
  local -a offered
  for ((i = 2; i < CURRENT; ++i)); do
    word=$words[i]
    if [[ -n $option ]]; then
      option=
    elif [[ $word == -*=* ]]; then
      continue
    elif [[ $word == -* ]]; then
      kind=$(_PROGRAM_options "$at" | grep -m1 -e "^$word=") && option=$word
    elif _PROGRAM_commands "$at" | grep -q -e "^$word:"; then
      at+=${at:+ }$word
    else
      rest=1
    fi
  done
  if [[ -n $option ]]; then
    kind=${kind#*=}
  elif [[ $PREFIX == -*=* ]]; then
    kind=$(_PROGRAM_options "$at" | grep -m1 -e "^${PREFIX%%=*}=")
    kind=${kind#*=}
    compset -P '*='
  elif [[ $PREFIX == -* ]]; then
    offered=(${(f)"$(_PROGRAM_described "$at")"})
    _describe -o option offered
    return
  else
    [[ -n $rest ]] || offered=(${(f)"$(_PROGRAM_commands "$at")"})
    (( $#offered )) && _describe command offered
    kind=$(_PROGRAM_argument "$at")
  fi
  case $kind in
    '' | @) ;;
    @file) _files ;;
    @dir) _files -/ ;;
    *) compadd -- ${=kind} ;;
  esac
}
_PROGRAM "$@"
)sh";

}  // namespace

std::string BashCompletion(TCommand program) {
  return Named(program, kBashHead) + Table(program, "commands", false, Commands) +
         Table(program, "options", true, Options) + Table(program, "argument", false, Argument) + Named(program, kBash);
}

std::string ZshCompletion(TCommand program) {
  return Named(program, kZshHead) + Table(program, "commands", false, DescribedCommands) +
         Table(program, "options", true, Options) + Table(program, "described", true, DescribedOptions) +
         Table(program, "argument", false, Argument) + Named(program, kZsh);
}

}  // namespace ixocommandline
