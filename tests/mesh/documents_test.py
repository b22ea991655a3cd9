"""The commands of the documents: those of the README are run, the files and presets of all exist."""

import json
import os
import re
import shlex
import tempfile
import unittest
from pathlib import Path

from lab import BUILD, ROOT, poll, run

# Lists the README's commands that are not run, by their first words, with the reason.
NOT_RUN = {
    "./demo": "it builds for two minutes",
    "./check": "it runs this test",
    "cmake --preset release": "it changes the build under test",
    "cmake --preset arm": "it builds for minutes, as check arm does",
    "cpack": "packaging_test.sh runs this line",
}


def commands(document):
    text = re.sub(r"^```.*?^```", "", (ROOT / document).read_text(), flags=re.M | re.S)
    return [re.sub(r"\s+# .*|\s{2,}.*", "", line) for line in re.findall(r"^ {4}(\S.*)$", text, re.M)]


class Documents(unittest.TestCase):
    def test_files_and_presets_of_commands_exist(self):
        presets = {preset["name"] for preset in json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]}
        for command in (line for name in ("README.md", "CONTRIBUTING.md", "lab/README.md") for line in commands(name)):
            words = shlex.split(command)
            for option, preset in zip(words, words[1:]):
                self.assertTrue(option != "--preset" or preset in presets, command)
            for word in (re.split("[:=]", word)[-1] for word in words):
                path = re.sub(r"^build/(dev|release)|^(\.\./)+", lambda build: BUILD if build[1] else "", word)
                found = any((Path(place) / path).exists() for place in (ROOT, BUILD))
                self.assertTrue(found or "/" not in word or word[0] in "/$>", f"{word}: {command}")

    def test_the_commands_of_the_readme_run_as_written(self):
        mesh = f"lab/mesh --name readme-{os.getpid()}"
        self.addCleanup(run, "sh", "-c", f"{mesh} down", cwd=ROOT)
        left_out = {words for words in NOT_RUN for command in commands("README.md") if command.startswith(words)}
        self.assertEqual(left_out, set(NOT_RUN))
        with tempfile.TemporaryDirectory() as directory:
            for command in commands("README.md"):
                if command.startswith(tuple(NOT_RUN)):
                    continue
                for written, run_as in (("/tmp/", f"{directory}/"), ("build/release", BUILD),
                                        ("mesh up", f"mesh up --build {BUILD}"), ("lab/mesh", mesh)):
                    command = command.replace(written, run_as)
                # Agents are known after some seconds.
                poll(lambda: run("sh", "-c", command, cwd=ROOT).returncode == 0, 20, command)
