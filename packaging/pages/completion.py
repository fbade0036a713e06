"""Completions of a program for bash and zsh, from its help."""
import re

# What the values of an option or argument are, where its help does not tell by NAME, FILE or a number type.
VALUE_KINDS = {"--chart": "variables", "NAME": "variables", "NAME=VALUE": "variables", "--address": "nothing",
               "--sim-arg": "nothing", "--rotate": "nothing", "--driver": "drivers"}
WITH_HELP_COMMAND = ("plc-host",)  # help COMMAND is COMMAND --help there
NO_FILES = ("UINT", "INT", "FLOAT", "MS", "HOST:PORT", "FAULT", "NAME=NUMBER", "RANGES", "LENGTH", "PROGRAM",
            "NUMBER", "DEVICE")


def value_kind(option):
    """files, variables, nothing, or the choices themselves as a list; an empty text for options without a value."""
    if option.choices:
        return option.choices
    name = option.names[-1]
    if name in VALUE_KINDS:
        return VALUE_KINDS[name]
    if name.startswith("-"):
        if not option.value:
            return ""
        return "nothing" if option.value in NO_FILES else "files"
    return "files"


def long_names(page):
    return [option.names[-1] for option in page.options()]


def identifier(page):
    return "_" + page.name.replace("-", "_")


BASH = r'''# Completion of @PROGRAM@ for bash, made from the program's own help.
# shellcheck shell=bash

# What says on the command line which tag file is meant; the environment and files of settings say it to the program.
@FUNCTION@_target() {
  local i option
  for ((i = 1; i < COMP_CWORD; ++i)); do
    option=${COMP_WORDS[i]}
    case "$option" in
      --sim | --tags | --address | --area)
        [[ ${COMP_WORDS[i + 1]} != = ]] || i=$((i + 1))
        target+=("${option/#--sim/--tags}" "${COMP_WORDS[i + 1]/#\~/$HOME}")
        ;;
    esac
  done
}

# Offers files that begin with the current word.
@FUNCTION@_files() {
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

# Offers the variables of the tag file that is meant, as the driver understands them. Names are data: nothing in them is
# expanded, and what a shell would act on is quoted.
@FUNCTION@_variables() {
  local name target=()
  @FUNCTION@_target
  # Completion must be quiet about a file that cannot be read yet.
  while IFS= read -r name; do
    [[ $name != "$1"* ]] || COMPREPLY+=("$(printf '%q' "$name")")
  done < <("${COMP_WORDS[0]}" tags "${target[@]}" --names 2>/dev/null)
}

# Offers the builds of the driver by their names, and files.
@FUNCTION@_drivers() {
  mapfile -t COMPREPLY < <(compgen -W "guarded contract" -- "$1"; compgen -f -- "$1")
}

@FUNCTION@_words() {
  mapfile -t COMPREPLY < <(compgen -W "$2" -- "$1")
}

@FUNCTION@() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} @COMMAND_LOCAL@words="" values=""
  COMPREPLY=()
  # Bash takes --option=value apart at the '='.
  if [[ $current == = ]]; then
    current=""
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
@BODY@
}

complete -F @FUNCTION@ @PROGRAM@
'''


def bash_values(options, indent):
    """The cases of a word behind an option that takes a value."""
    kinds = {}
    for option in options:
        kind = value_kind(option)
        if kind:
            kinds.setdefault(kind if isinstance(kind, str) else " ".join(kind), []).extend(option.names)
    lines = []
    for kind, names in kinds.items():
        action = {"files": '@FUNCTION@_files "$current"', "variables": '@FUNCTION@_variables "$current"',
                  "drivers": '@FUNCTION@_drivers "$current"',
                  "nothing": ""}.get(kind, '@FUNCTION@_words "$current" "%s"' % kind)
        lines += ["  %s)" % " | ".join(names)] + ["    " + action] * bool(action) + ["    return", "    ;;"]
    if not lines:
        return []
    return [indent + line for line in ['case "$previous" in', *lines, "esac"]]


def bash_body(page):
    """What the completing function does once it knows the words."""
    everything = [option for part in [page, *(command for command, _ in page.commands)] for option in part.options()]
    once = list({option.names[-1]: option for option in everything}.values())
    lines = bash_values(once, "  ")
    if page.commands:
        first = " ".join([command.name for command, _ in page.commands] + long_names(page))
        lines += ["  if ((COMP_CWORD == 1)); then", '    @FUNCTION@_words "$current" "%s"' % first, "    return",
                  "  fi"]
        if page.name in WITH_HELP_COMMAND:
            names = " ".join(command.name for command, _ in page.commands)
            lines += ['  if ((COMP_CWORD == 2)) && [[ $command == help ]]; then',
                      '    @FUNCTION@_words "$current" "%s"' % names, "    return", "  fi"]
        lines += ['  case "$command" in']
        for command, _ in page.commands:
            lines += ["    %s)" % command.name, '      words="%s"' % " ".join(long_names(command)),
                      "      values=%s" % argument_kind(command), "      ;;"]
        lines.append("  esac")
    else:
        lines += ['  words="%s"' % " ".join(long_names(page)), "  values=%s" % argument_kind(page)]
    kinds = sorted({argument_kind(part) for part in [page, *(command for command, _ in page.commands)]} - {"nothing"})
    lines += ["  if [[ $current == -* ]]; then", '    @FUNCTION@_words "$current" "$words"']
    for kind in kinds:
        lines += ["  elif [[ $values == %s ]]; then" % kind, '    @FUNCTION@_%s "$current"' % kind]
    return "\n".join([*lines, "  fi"])


def argument_kind(page):
    return value_kind(page.positionals[0]) if page.positionals else "nothing"


def without_unused(text):
    """Functions and variables that this program's completion does not use are left out."""
    for part in ("variables", "target", "drivers"):
        if len(re.findall(r"@FUNCTION@_%s\b" % part, text)) == 1:
            text = re.sub(r"(?:^#[^\n]*\n)*^@FUNCTION@_%s\(\) \{.*?^\}\n\n" % part, "", text, flags=re.S | re.M)
    return text


def bash_completion(page):
    text = BASH.replace("@BODY@", bash_body(page))
    text = text.replace("@COMMAND_LOCAL@", "command=${COMP_WORDS[1]}\n  local " if page.commands else "")
    text = without_unused(without_unused(text))
    return text.replace("@FUNCTION@", identifier(page)).replace("@PROGRAM@", page.name)


def zsh_quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def zsh_explained(text):
    """An explanation within an argument of _arguments."""
    return re.sub(r"([\[\]:\\])", r"\\\1", text)


def zsh_action(option):
    kind = value_kind(option)
    if isinstance(kind, list):
        return "(%s)" % " ".join(kind)
    return {"files": "_files", "drivers": "_files", "variables": "@FUNCTION@_variables"}.get(kind, " ")


def zsh_arguments(page):
    lines = []
    for option in page.options():
        for name in option.names:
            value = ":%s:%s" % (zsh_explained(option.value.lower()), zsh_action(option)) if option.value else ""
            often = "*" if option.repeated else ""
            lines.append(zsh_quoted("%s%s[%s]%s" % (often, name, zsh_explained(option.text), value)))
    for option in page.positionals:
        often = "*" if option.repeated else ""
        lines.append(zsh_quoted("%s:%s:%s" % (often, zsh_explained(option.text), zsh_action(option))))
    return lines


ZSH_VARIABLES = r'''# The variables of the tag file that is meant, as the driver understands them.
@FUNCTION@_variables() {
  local option
  local -a names target
  for option in --sim --tags --address --area; do
    [[ -z ${opt_args[$option]:-} ]] || target+=(${option/#--sim/--tags} ${(q)${opt_args[$option]/#\~/$HOME}})
  done
  names=(${(f)"$(_call_program names ${(q)program} tags $target --names 2>/dev/null)"})
  compadd -a names
}

'''


def zsh_call(command, arguments):
    """A command with an argument in each line, indented below it."""
    indent = " " * (len(command) - len(command.lstrip()) + 2)
    return (" \\\n" + indent).join([command, *arguments])


def zsh_completion(page):
    lines = ["#compdef " + page.name, "# Completion of %s for zsh, made from the program's own help." % page.name, ""]
    body = ["@FUNCTION@() {", "  local curcontext=$curcontext state line", "  typeset -A opt_args"]
    if not page.commands:
        body += [zsh_call("  _arguments -s", zsh_arguments(page)), "}"]
    else:
        states = ["'1:command:->command'", "'*::argument:->argument'"]
        body += ["  local program=$words[1]", zsh_call("  _arguments -C", zsh_arguments(page) + states),
                 "  case $state in", "    command)", "      local -a commands", "      commands=("]
        body += ["        " + zsh_quoted("%s:%s" % (command.name, zsh_explained(short)))
                 for command, short in page.commands]
        body += ["      )", "      _describe command commands", "      ;;", "    argument)", "      case $line[1] in"]
        for command, _ in page.commands:
            body += ["        %s)" % command.name, zsh_call("          _arguments -s", zsh_arguments(command)),
                     "          ;;"]
        body += ["      esac", "      ;;", "  esac", "}"]
    text = "\n".join(body)
    if "@FUNCTION@_variables" in text:
        text = ZSH_VARIABLES + text
    text = "\n".join(lines) + "\n" + text + "\n\n" + '@FUNCTION@ "$@"' + "\n"
    return text.replace("@FUNCTION@", identifier(page))
