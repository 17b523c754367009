"""fexo's bash completion, as bash runs it: the words on the line go in COMP_WORDS, the
completion function fills COMPREPLY. FEXO_COMPLETION is the generated script, FEXO_TOOL the
fexo it was generated from."""

import json
import os
import subprocess

import pytest

SCRIPT = os.environ["FEXO_COMPLETION"]
TOOL = os.environ["FEXO_TOOL"]


def offered(*words, cwd=None):
    """What completing the last of `words` (after "fexo") offers."""
    line = ["fexo", *words]
    program = (
        'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _fexo; '
        'printf "%s\\n" "${COMPREPLY[@]}"'
    )
    result = subprocess.run(["bash", "--norc", "--noprofile", "-c", program, "complete", SCRIPT, *line],
                            capture_output=True, text=True, cwd=cwd, check=True)
    assert result.stderr == ""
    return {word for word in result.stdout.split("\n") if word}


def test_the_top_level_offers_every_command_its_own_and_those_handed_over():
    everything = offered("")
    assert {"register", "handle-push", "list", "watch", "store", "config"} <= everything
    assert {"serve", "demo", "agent"} <= everything
    assert offered("mark") == {"mark-read", "mark-all-read"}
    assert offered("--") == {"--help", "--resources", "--app-groups", "--version"}


def test_a_command_offers_its_options_and_the_top_levels_after_it():
    assert {"--token", "--device-id", "--provider", "--time-limit", "--resources"} <= offered("register", "--")
    # The value of --resources is skipped: "list" is the command, and /tmp no command at all.
    assert {"--limit", "--after", "--json"} <= offered("--resources", "/tmp", "list", "--")
    assert offered("store", "") == {"check", "repair"}
    assert offered("config", "") == {"check"}


def test_handed_over_commands_complete_as_their_executables_parse_them():
    assert {"--host", "--port", "--data", "--client-id", "--client-secret"} <= offered("serve", "--")
    assert offered("agent", "") == {"run", "push"}
    assert {"--extension", "--time-limit", "--memory-limit", "--host-command"} <= offered("agent", "run", "--")
    assert "--wait" in offered("--app-groups", "g", "agent", "push", "--")


def test_values_complete_with_their_choices_directories_or_files_and_free_text_with_nothing(tmp_path):
    assert offered("register", "--provider", "") == {"apns", "fcm", "pushwoosh"}
    assert offered("register", "--provider", "p") == {"pushwoosh"}
    (tmp_path / "resources").mkdir()
    (tmp_path / "push.json").write_text("{}")
    assert offered("--resources", "", cwd=tmp_path) == {"resources"}
    assert offered("serve", "--data", "", cwd=tmp_path) == {"resources"}
    assert offered("handle-push", "pu", cwd=tmp_path) == {"push.json"}
    assert offered("agent", "push", "", cwd=tmp_path) == {"resources", "push.json"}
    assert offered("register", "--token", "", cwd=tmp_path) == set()
    assert offered("list", "", cwd=tmp_path) == set()  # takes no file


def test_every_command_and_option_that_fexo_itself_lists_is_offered():
    tree = json.loads(subprocess.run([TOOL, "--command-tree"], capture_output=True, text=True, check=True).stdout)

    def check(path, command):
        if "handed_over_to" in command:
            return  # its own executable describes it (above)
        assert {sub["name"] for sub in command["commands"]} <= offered(*path, ""), path
        assert {name for option in command["options"] for name in option["names"]} <= offered(*path, "-"), path
        for sub in command["commands"]:
            check([*path, sub["name"]], sub)

    check([], tree)


if __name__ == "__main__":
    raise SystemExit(pytest.main([__file__]))
