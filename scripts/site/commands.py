"""The reference page of the command, from its help texts, and whether the guide knows all of it."""

import re
import subprocess


def page(program, guide):
    top = text_of(program)
    listed = top.partition("commands:")[2]
    names = re.findall(r"^  ([a-z][a-z-]*) {2,}\S", listed, re.MULTILINE)
    untold = [name for name in names if f"`zeph {name}" not in guide.read_text(encoding="utf-8")]
    if untold or not names:
        raise SystemExit(f"{guide.name} does not tell of zeph {', '.join(untold)}")
    lines = ["# The command zeph", "", "What `zeph --help` and `zeph COMMAND --help` print.", ""]
    lines += ["```text", top, "```", ""]
    for name in names:
        summary, _, rest = text_of(program, name).partition("\n")
        lines += [f"## zeph {name}", "", f"{summary}.", "", "```text", rest.strip("\n"), "```", ""]
    return "\n".join(lines)


def text_of(program, *command):
    shown = subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True)
    return shown.stdout.strip()
