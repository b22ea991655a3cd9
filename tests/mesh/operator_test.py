"""Operator commands in a mesh: output of the tool, actions of the device, and their order."""

import json
import os

from lab import BUILD, ROOT, Capture, Mesh, MeshTest, poll, run

SUCCESS, REFUSED = 0, 3


class Operator(MeshTest):
    def test_commands_reach_the_agent_and_report_its_result(self):
        capture = Capture()
        with Mesh("--devices", "3", "--capture", capture.path) as mesh:
            mesh.await_known("agent1", "agent2")
            self.mesh, self.far, self.near = mesh, mesh.al_mac("agent2"), mesh.al_mac("agent1")
            self.check_results()
            self.check_led()
            self.check_resets()
            self.check_reboots()
        capture.check(2, 3, 4, 5, 6, 7, 20, 21, 22, 23, 25, 26, 27, 32, 33, 35)
        self.check_scenario(capture)

    def check_scenario(self, capture):
        """The captured steps have the same outcomes in the plug-in's tests, in a device with these interfaces."""
        steps = run(ROOT / "tools" / "capture-to-scenario", capture.path, "--as", self.far).stdout
        self.assertIn(" LED_CTRL_REQ local 00 => LED_CTRL_RESP 00, *\n", steps)
        port, radio24, radio5 = (self.far.replace(":", "")[:-2] + end for end in ("10", "20", "21"))
        title, *lines = steps.splitlines()
        scenario = [title, f"interfaces {port} 1 {radio24} 0x103 {radio5} 0x105", "file conf ''",
                    *(line for line in lines if "CONF_QUERY" not in line)]  # the answer has the device's uptime
        script = ('cp -r "$0" /tmp/played; cat >/tmp/played/captured.txt; mount --bind /tmp/played "$0"; '
                  "tests/plugin_tests --gtest_filter=Scenarios.Out*")
        played = run(ROOT / "lab" / "room", "--net", "--bin", f"{BUILD}/bin", "--", "sh", "-ec", script,
                     os.path.relpath(ROOT / "tests/scenarios", BUILD), cwd=BUILD, input="\n".join(scenario))
        self.assertEqual(played.returncode, 0, played.stdout)

    def led(self):
        """Returns the LED state of the configuration service and of the plug-in's file."""
        reported = self.mesh.exec("agent2", "sed", "-n", "s/^LedEnable=//p", "/tmp/.kv1905_conf").stdout.strip()
        return self.kcfg("agent2", "get", "LED_CTRL.1.enable"), reported

    def check_results(self):
        # Results from the agent's interfaces, from its plug-in, and from a device that was commanded by another.
        radio = self.far[:-2] + "20"
        for words, code in (
                (("power", self.far, radio, "0103", "2"), 0),
                (("power", self.far, "00:00:00:00:00:00", "0103", "0"), 64),
                (("firmware", self.far, "1", "1", "u" * 1023), 16),
                (("command", self.far, "2", self.near), 7),
                (("command", self.far, "3", self.far, radio, "103", "0"), 0)):
            output = self.app("--json", *words, status=SUCCESS if code == 0 else REFUSED)
            self.assertEqual(json.loads(output.splitlines()[-1])["code"], code, words)

    def check_led(self):
        self.assertEqual(self.led(), ("1", "1"))
        self.app("led", self.far, "0")
        poll(lambda: self.led() == ("0", "0"), 5, "LEDs that are off")
        poll(lambda: self.mesh.device_in("agent2")["LedStatus"] == "OFF", 5, "the LED state at the controller")
        self.app("query-power", self.far)

    def check_resets(self):
        for words in (("reset", self.far), ("20", self.far)):  # whole and partial
            self.kcfg("agent2", "set", "LED_CTRL.1.enable", "0")
            self.app(*words)
            poll(lambda: self.led() == ("1", "1"), 5, f"the factory default after {words}")

    # The controller requests the configuration of a device that restarted.
    def check_reboots(self):
        for name, words in (("First", ("reboot", self.far)), ("Second", ("command", self.far, "2", self.far))):
            self.rename("agent2", name)
            before = self.mesh.daemon("agent2")["pid"]
            self.app(*words)
            poll(lambda: self.mesh.daemon("agent2")["pid"] not in (before, None), 10, "the restart")
            poll(lambda: (self.mesh.device_in("agent2") or {}).get("ModelName") == name, 20, "the new configuration")
