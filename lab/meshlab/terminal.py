"""Progress of long work: one line that is rewritten on a terminal; elsewhere plain output."""

import os
import shutil
import sys


class Progress:
    """show() replaces the line, clear() removes it; both do nothing without a terminal."""

    def __init__(self, stream=sys.stderr):
        self._stream = stream
        self.is_watched = stream.isatty() and os.environ.get("TERM") != "dumb"

    def show(self, text):
        if self.is_watched:
            width = shutil.get_terminal_size().columns - 1
            print(f"\r\033[K{text[:width]}", end="", file=self._stream, flush=True)

    def clear(self):
        self.show("")


def paint(colour, text, stream=sys.stdout):
    """Coloured on a terminal whose user has not set NO_COLOR."""
    if not stream.isatty() or os.environ.get("NO_COLOR"):
        return text
    return f"\033[{colour}m{text}\033[0m"
