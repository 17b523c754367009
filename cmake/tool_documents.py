#!/usr/bin/env python3
"""Writes the tools' manual pages and fexo's bash completion from the tools themselves.

Each tool prints its command line as JSON with the hidden flag --command-tree (names,
descriptions, options, arguments, subcommands): the pages and the completion are made from that
at build time, so they say what the tools' own --help says. fexo's commands that it hands over to
a sibling executable (serve and demo to fexo-devserver, agent to fexo-agent) are described by
that sibling's tree.

Usage: tool_documents.py OUTDIR FEXO FEXO_DEVSERVER FEXO_AGENT
Writes OUTDIR/fexo.1, OUTDIR/fexo-devserver.1, OUTDIR/fexo-agent.1 and OUTDIR/fexo.bash.
"""

import json
import os
import subprocess
import sys

# Values that name a directory (completed with directories); a positional FILE is completed with
# files. Every other value is free text, completed with nothing (or its choices).
DIRECTORY_OPTIONS = {"--resources", "--app-groups", "--data"}

# fexo-devserver shows fexo's own description, as the commands it runs belong to fexo.
SUMMARY = {"fexo-devserver": "the commands of fexo that carry an HTTP server: serve and demo"}

SEE_ALSO = {
    "fexo": ["fexo-agent", "fexo-devserver"],
    "fexo-agent": ["fexo", "fexo-devserver"],
    "fexo-devserver": ["fexo", "fexo-agent"],
}

ENVIRONMENT = {
    "fexo": [
        ("FEXO_RESOURCES_DIR", "Where FeXOService-Info.plist is, unless --resources gives it."),
        ("FEXO_APP_GROUPS_DIR", "The root of the app-group stores, unless --app-groups gives it; "
         "else $XDG_DATA_HOME/fexo/app-groups, else ~/.local/share/fexo/app-groups."),
        ("SSL_CERT_FILE", "A PEM file of certificate authorities trusted in place of the system's "
         "bundle, for a server whose certificate a private authority signed."),
        ("SSL_CERT_DIR", "A directory of certificate authorities (prepared with openssl rehash) "
         "trusted in place of the system's directory."),
        ("http_proxy, https_proxy, no_proxy", "The proxy of requests to the server."),
    ],
    "fexo-agent": [
        ("FEXO_RESOURCES_DIR, FEXO_APP_GROUPS_DIR", "Passed on to every extension process, "
         "as is the rest of the agent's environment."),
        ("DBUS_SESSION_BUS_ADDRESS", "The session bus the agent serves on."),
    ],
    "fexo-devserver": [
        ("FEXO_RESOURCES_DIR", "Where FeXOService-Info.plist is, unless --resources gives it; "
         "serve takes its default client id and secret from there."),
    ],
}

FILES = {
    "fexo-agent": [
        ("lib/systemd/user/fexo-agent.service", "The agent's user unit (installed, not enabled)."),
        ("share/dbus-1/services/org.fexo.NotificationAgent1.service",
         "Bus activation: the first call to the agent's name starts the unit."),
        ("share/dbus-1/interfaces/org.fexo.NotificationAgent1.xml", "The agent's D-Bus interface."),
    ],
}


def tree_of(executable):
    output = subprocess.run([executable, "--command-tree"], check=True, capture_output=True, text=True).stdout
    return json.loads(output)


def named(commands, name):
    return next((command for command in commands if command["name"] == name), None)


def with_handed_over(tree, siblings):
    """fexo's tree, each handed-over command replaced by what its sibling says of it: the sibling's
    command of the same name, else the sibling's whole command line (fexo agent ... is fexo-agent ...)."""
    commands = []
    for command in tree["commands"]:
        sibling = siblings.get(command.get("handed_over_to"))
        if sibling is not None:
            replacement = dict(named(sibling["commands"], command["name"]) or sibling)
            replacement["name"] = command["name"]
            replacement["description"] = command["description"]
            command = replacement
        commands.append(command)
    return dict(tree, commands=commands)


# ---- manual pages --------------------------------------------------------------------------------

def roff(text):
    text = text.replace("\\", "\\e")
    lines = []
    for line in text.split("\n"):
        if line.startswith((".", "'")):
            line = "\\&" + line
        lines.append(line)
    return "\n".join(lines)


def roff_option(names, value):
    words = ", ".join("\\fB" + name.replace("-", "\\-") + "\\fR" for name in names)
    return words + (" \\fI" + roff(value.split(":")[0]) + "\\fR" if value else "")


def synopsis(path, command):
    words = ["\\fB" + roff(" ".join(path)) + "\\fR"]
    if command["options"]:
        words.append("[\\fIOPTIONS\\fR]")
    for argument in command["arguments"]:
        name = "\\fI" + roff(argument["name"]) + "\\fR"
        words.append(name if argument["required"] else "[" + name + "]")
    if command["commands"]:
        words.append("\\fICOMMAND\\fR")
    return " ".join(words)


def sentence(text):
    return roff(text if text.endswith((".", ":", "!", "?")) else text + ".")


def options_section(command, with_help=True):
    out = []
    for option in command["options"]:
        if not with_help and "--help" in option["names"]:
            continue  # every command has it; the description says so once
        out += [".TP", roff_option(option["names"], option["value"]), sentence(option["description"])]
        if option.get("choices"):
            out.append("One of: " + ", ".join(roff(choice) for choice in option["choices"]) + ".")
    for argument in command["arguments"]:
        out += [".TP", "\\fI" + roff(argument["name"]) + "\\fR", sentence(argument["description"])]
    return out


def commands_section(path, command):
    out = []
    for sub in command["commands"]:
        sub_path = path + [sub["name"]]
        out += [".SS \"" + roff(" ".join(sub_path[1:])) + "\"", synopsis(sub_path, sub), ".PP",
                sentence(sub["description"])]
        details = options_section(sub, with_help=False)
        if details:
            out += [".RS"] + details + [".RE"]
        out += commands_section(sub_path, sub)
    return out


def manual_page(name, tree, version):
    summary = SUMMARY.get(name, tree["description"])
    if summary.startswith(name + ": "):
        summary = summary[len(name) + 2:]
    title = name.upper().replace("-", "\\-")
    out = [
        f'.TH {title} 1 "" "{name} {version}" "User Commands"',
        ".SH NAME",
        name.replace("-", "\\-") + " \\- " + roff(summary),
        ".SH SYNOPSIS",
        synopsis([name], tree),
        ".SH DESCRIPTION",
        roff(summary[0].upper() + summary[1:]) + ".",
        "Every command explains itself with \\fB\\-\\-help\\fR.",
    ]
    if tree["options"]:
        out += [".SH OPTIONS"] + options_section(tree)
    if tree["commands"]:
        out += [".SH COMMANDS"] + commands_section([name], tree)
    if name in ENVIRONMENT:
        out.append(".SH ENVIRONMENT")
        for variable, text in ENVIRONMENT[name]:
            out += [".TP", "\\fB" + roff(variable) + "\\fR", roff(text)]
    if name in FILES:
        out.append(".SH FILES")
        for path, text in FILES[name]:
            out += [".TP", "\\fI<prefix>/" + roff(path) + "\\fR", roff(text)]
    out += [".SH SEE ALSO", ",\n".join(f".BR {other} (1)" for other in SEE_ALSO[name])]
    return "\n".join(out) + "\n"


# ---- bash completion -----------------------------------------------------------------------------

def shell_words(words):
    return "'" + " ".join(words).replace("'", "'\\''") + "'"


def completion(tree):
    """A bash function that completes fexo's commands, their options and the values it knows:
    walking the words before the cursor down the command tree, it offers the commands and options
    of the command reached, a value's choices, directories or files."""
    cases = []
    global_values = [name for option in tree["options"] if option["value"] for name in option["names"]]

    def visit(path, command):
        options = [name for option in command["options"] for name in option["names"]]
        values = [name for option in command["options"] if option["value"] for name in option["names"]]
        if path:  # given after the command too
            options = list(dict.fromkeys(options + global_values))
            values = list(dict.fromkeys(values + global_values))
        files = any(argument["name"] == "FILE" for argument in command["arguments"])
        lines = [f"commands={shell_words(sub['name'] for sub in command['commands'])}",
                 f"options={shell_words(options)}", f"values={shell_words(values)}",
                 f"files={'1' if files else ''}"]
        cases.append(f"        {shell_words([' '.join(path)])}) " + "; ".join(lines) + " ;;")
        for sub in command["commands"]:
            visit(path + [sub["name"]], sub)

    visit([], tree)
    choices = []
    directories = []

    def collect(command):
        for option in command["options"]:
            for name in option["names"]:
                if option.get("choices"):
                    choices.append(f"        {name}) words={shell_words(option['choices'])} ;;")
                elif name in DIRECTORY_OPTIONS and name not in directories:
                    directories.append(name)
        for sub in command["commands"]:
            collect(sub)

    collect(tree)
    choices = list(dict.fromkeys(choices))
    return f"""# bash completion for fexo, generated from its command tree at build time.

# Sets commands, options, values (the options that take a value) and files (non-empty when the
# command takes a file) for the command path $1 ("" for the top level, "store check", ...).
_fexo_command() {{
    case "$1" in
{chr(10).join(cases)}
        *) return 1 ;;
    esac
}}

_fexo() {{
    local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}}
    local path="" commands options values files i word
    _fexo_command "" || return
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${{COMP_WORDS[i]}}
        if [[ $word == -* ]]; then
            [[ $word != *=* && " $values " == *" $word "* ]] && ((i++))
        elif [[ " $commands " == *" $word "* ]]; then
            path=${{path:+$path }}$word
            _fexo_command "$path" || return
        fi
    done
    COMPREPLY=()
    if [[ $COMP_CWORD -gt 1 && " $values " == *" $prev "* ]]; then
        local words=""
        case "$prev" in
{chr(10).join(choices)}
        {"|".join(directories) or "--"}) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -d -- "$cur")); return ;;
        *) return ;;
        esac
        COMPREPLY=($(compgen -W "$words" -- "$cur"))
    elif [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
    else
        COMPREPLY=($(compgen -W "$commands" -- "$cur"))
        if [[ -n $files ]]; then
            compopt -o filenames 2>/dev/null
            COMPREPLY+=($(compgen -f -- "$cur"))
        fi
    fi
}}

complete -F _fexo fexo
"""


def main():
    outdir, fexo, devserver, agent = sys.argv[1:5]
    version_line = subprocess.run([fexo, "--version"], check=True, capture_output=True, text=True).stdout
    version = version_line.split()[-1]
    trees = {"fexo": tree_of(fexo), "fexo-devserver": tree_of(devserver), "fexo-agent": tree_of(agent)}
    full = with_handed_over(trees["fexo"], trees)
    os.makedirs(outdir, exist_ok=True)
    for name, tree in trees.items():
        with open(os.path.join(outdir, name + ".1"), "w", encoding="utf-8") as page:
            page.write(manual_page(name, full if name == "fexo" else tree, version))
    with open(os.path.join(outdir, "fexo.bash"), "w", encoding="utf-8") as script:
        script.write(completion(full))


if __name__ == "__main__":
    main()
