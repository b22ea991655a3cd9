"""Checks of command-line arguments, for argparse."""

import argparse
import re
import shlex

from meshlab.ieee1905 import mac_bytes, mac_text


def number(low, high, kind=int):
    """Parses a number from low to high."""
    def parse(text):
        try:
            value = kind(text)
        except ValueError:
            value = None
        if value is None or not low <= value <= high:
            raise argparse.ArgumentTypeError(f"'{text}' is not a number from {low:g} to {high:g}")
        return value
    return parse


def names(text):
    """Splits names at commas."""
    return [name for name in text.split(",") if name]


def mesh_name(text):
    if not re.fullmatch(r"[A-Za-z0-9_][A-Za-z0-9_.-]{0,31}", text):
        raise argparse.ArgumentTypeError(f"'{text}' is not 1 to 32 letters, digits and . _ -")
    return text


def mac_address(text):
    try:
        return mac_text(mac_bytes(text))
    except ValueError as error:
        raise argparse.ArgumentTypeError(error) from None


def shell_words(text):
    try:
        shlex.split(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(f"'{text}': {error}") from None
    return text
