"""The commands of the documents: the mesh of the README is run, the files and presets of all commands exist."""

import json
import os
import re
import shlex
import tempfile
import unittest
from pathlib import Path

from lab import BUILD, ROOT, poll, run


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

    def test_the_mesh_of_the_readme_runs_as_written(self):
        mesh = f"lab/mesh --name readme-{os.getpid()}"
        self.addCleanup(run, "sh", "-c", f"{mesh} down", cwd=ROOT)
        with tempfile.TemporaryDirectory() as directory:
            for command in commands("README.md"):
                command = command.replace("/tmp/", f"{directory}/").replace("mesh up", f"mesh up --build {BUILD}")
                command = command.replace("lab/mesh", mesh)
                if command.startswith((mesh, "tshark")):  # agents are known after some seconds
                    poll(lambda: run("sh", "-c", command, cwd=ROOT).returncode == 0, 20, command)


if __name__ == "__main__":
    unittest.main()
