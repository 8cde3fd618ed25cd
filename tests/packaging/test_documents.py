"""Facts that two documents state are the same in both."""

import re
import shlex

from testbed import REPOSITORY

MANUAL = (REPOSITORY / "packaging/man/tarnwick.8").read_text(encoding="utf-8")
README = (REPOSITORY / "README.md").read_text(encoding="utf-8")


def plain(source):
    """The words of a piece of the manual. A macro of two letters joins its arguments; other macros do not."""
    words = []
    for line in source.strip().splitlines():
        macro = re.match(r"\.([BIR]{1,2}) (.*)", line)
        if macro:
            # An apostrophe is an ordinary character in the manual.
            arguments = shlex.split(macro[2].replace("'", r"\'"))
            line = ("" if len(macro[1]) == 2 else " ").join(arguments)
        words.append(line)
    return " ".join(words).replace("\\-", "-")


def test_readme_and_manual_agree_on_every_exit_status():
    section = MANUAL.split(".SH EXIT STATUS\n")[1].split(".SH ")[0]
    told = dict(map(plain, item.split("\n", 1)) for item in section.split(".TP\n")[1:])
    rows = re.findall(r"(?m)^\| (.*?) \| (.*?) \| (.*?) \|$", README.split("# Exit statuses")[1].split("\n## ")[0])
    assert {status: f"{meaning} {remedy}".replace("`", "") for status, meaning, remedy in rows[1:]} == told
    assert len(told) > 10
