"""Prints a demonstration: its pace, its colours and the lines that matter. A transcript gets everything."""

import atexit
import os
import re
import shutil
import sys
import termios
import textwrap
import tty

MARGIN = "     "
STYLES = {"strong": "1", "command": "36", "good": "32", "bad": "31", "faint": "2"}


class Refuted(Exception):
    """A step did not do what it announced."""


class Ended(Exception):
    """The person pressed the key that ends the demonstration."""


class Screen:
    """Waits for a key between steps if standard input and output are terminals, unless `fast`."""

    def __init__(self, transcript, fast):
        self._terminal = sys.stdout.isatty()
        self._colour = self._terminal and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"
        self._pace = self._terminal and sys.stdin.isatty() and not fast
        self._width = min(shutil.get_terminal_size().columns, 100)
        self._transcript = open(transcript, "w", encoding="utf-8")  # pylint: disable=consider-using-with
        self._number = 0
        if self._pace:
            # Read each key at once and do not echo it.
            atexit.register(termios.tcsetattr, sys.stdin, termios.TCSADRAIN, termios.tcgetattr(sys.stdin))
            tty.setcbreak(sys.stdin)

    def _style(self, name, text):
        return f"\033[{STYLES[name]}m{text}\033[0m" if self._colour else text

    def _print(self, name, first, text, later=None):
        """Prints text in a style, folded to the terminal: `first` precedes the first line, `later` the others."""
        later = " " * len(first) if later is None else later
        for line in textwrap.wrap(text, self._width, initial_indent=first, subsequent_indent=later,
                                  break_on_hyphens=False):
            print(self._style(name, line) if name else line, flush=True)

    def say(self, text):
        self._transcript.write(text + "\n")
        self._print(None, "", text)

    def step(self, promise):
        """Announces the next step, after the person has read the one before it."""
        self.wait()
        self._number += 1
        self._transcript.write(f"\n=== {self._number}. {promise}\n")
        print()
        self._print("strong", f"{self._number:3}. ", promise)

    def command(self, text):
        self._transcript.write(f"\n$ {text}\n")
        self._print("command", MARGIN + "$ ", text, MARGIN + "    ")

    def aside(self, text):
        """Prints a heading for lines that no command has printed."""
        self._transcript.write(f"\n{text}:\n")
        self._print("command", MARGIN, text + ":")

    def show(self, lines, keep):
        """Prints the lines that match one of the patterns, as they come; returns all lines as one text."""
        everything = []
        for line in lines:
            # Drop what a terminal would overwrite after a carriage return.
            line = re.sub(r"[^\r\n]*\r(?=.)", "", line.rstrip("\n"))
            everything.append(line + "\n")
            self._transcript.write(line + "\n")
            if any(re.search(pattern, line) for pattern in keep):
                room = self._width - len(MARGIN) - 2
                shown = line if len(line) <= room else line[:room - 1] + "…"
                print(self._style("faint", MARGIN + "│ ") + shown, flush=True)
        return "".join(everything)

    def status(self, number):
        self._transcript.write(f"[exit status {number}]\n")
        print(self._style("faint", f"{MARGIN}└ exit status {number}"), flush=True)

    def verdict(self, fact, truth):
        if not truth:
            raise Refuted(fact)
        self._transcript.write(f"Checked: {fact}.\n")
        self._print("good", MARGIN + "✓ ", fact)

    def refute(self, fact):
        self._print("bad", MARGIN + "✗ ", f"this is not true: {fact}")

    def wait(self):
        """Waits for a key; "q" ends the demonstration."""
        self._transcript.flush()
        if not self._pace:
            return
        print(self._style("faint", "\nPress a key to go on, q to end."), end="", flush=True)
        termios.tcflush(sys.stdin, termios.TCIFLUSH)
        key = os.read(sys.stdin.fileno(), 16)
        print("\r\033[K\033[A", end="", flush=True)
        if key in (b"q", b"Q", b"\x04", b""):
            raise Ended
