"""fexo's bash completion as bash runs it: the words go in COMP_WORDS, _fexo fills COMPREPLY.
FEXO_COMPLETION is the generated script, FEXO_TOOL the fexo it was generated from."""

import json
import os
import subprocess

SCRIPT = os.environ["FEXO_COMPLETION"]


def offered(*words, cwd=None):
    """What completing the last of `words` (after "fexo") offers."""
    program = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _fexo; printf "%s\\n" "${COMPREPLY[@]}"'
    result = subprocess.run(["bash", "--norc", "--noprofile", "-c", program, "-", SCRIPT, "fexo", *words],
                            capture_output=True, text=True, cwd=cwd, check=True)
    assert result.stderr == ""
    return {word for word in result.stdout.split("\n") if word}


def test_commands_and_options_where_they_apply_those_handed_over_included():
    assert {"register", "handle-push", "store", "serve", "demo", "agent"} <= offered("")
    assert offered("mark") == {"mark-read", "mark-all-read"}
    assert offered("--") == {"--help", "--resources", "--app-groups", "--version"}  # nothing hidden
    assert {"--token", "--provider", "--resources"} <= offered("register", "--")
    # The value of --resources is skipped: "list" is the command.
    assert {"--limit", "--after", "--json"} <= offered("--resources", "/tmp", "list", "--")
    assert offered("store", "") == {"check", "repair"}
    assert {"--port", "--data", "--client-secret"} <= offered("serve", "--")  # fexo-devserver's
    assert offered("agent", "") == {"run", "push"}  # fexo-agent's
    assert {"--time-limit", "--memory-limit", "--host-command"} <= offered("agent", "run", "--")


def test_values_complete_with_their_choices_directories_or_files_and_free_text_with_nothing(tmp_path):
    (tmp_path / "resources").mkdir()
    (tmp_path / "push.json").write_text("{}")
    assert offered("register", "--provider", "") == {"apns", "fcm", "pushwoosh"}
    assert offered("--resources", "", cwd=tmp_path) == {"resources"}
    assert offered("serve", "--data", "", cwd=tmp_path) == {"resources"}
    assert offered("agent", "push", "", cwd=tmp_path) == {"resources", "push.json"}
    assert offered("register", "--token", "", cwd=tmp_path) == set()
    assert offered("list", "", cwd=tmp_path) == set()  # takes no file


def test_every_command_and_option_that_fexo_lists_is_offered():
    tree = json.loads(subprocess.run([os.environ["FEXO_TOOL"], "--command-tree"], capture_output=True,
                                     text=True, check=True).stdout)

    def check(path, command):
        if "handed_over_to" not in command:  # else its own executable describes it
            assert {sub["name"] for sub in command["commands"]} <= offered(*path, ""), path
            assert {name for option in command["options"] for name in option["names"]} <= offered(*path, "-"), path
            for sub in command["commands"]:
                check([*path, sub["name"]], sub)

    check([], tree)
