"""The reference page of the command, from its help texts."""

import re
import subprocess


def page(program):
    top = text_of(program)
    names = re.findall(r"^  ([a-z][a-z-]*) {2,}(.+)$", top.split("commands:", 1)[-1], re.MULTILINE)
    if not names:
        raise SystemExit(f"{program} --help lists no commands")
    lines = ["# The command zeph", "", "What `zeph --help` and `zeph COMMAND --help` print.", ""]
    lines += ["```text", top, "```", ""]
    for name, _ in names:
        summary, _, rest = text_of(program, name).partition("\n")
        lines += [f"## zeph {name}", "", f"{summary}.", "", "```text", rest.strip("\n"), "```", ""]
    return "\n".join(lines)


def text_of(program, *command):
    shown = subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True)
    return shown.stdout.strip()
