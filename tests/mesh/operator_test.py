"""An operator's commands over a real mesh: what the tool says, what the device does, and in which order."""

import json
import unittest

from lab import NOBODY, Capture, Mesh, MeshTest, nobody_can_run_the_build, poll

SUCCESS, BAD_ARGUMENTS, REFUSED, NO_DEVICE, NO_ANSWER, NO_DAEMON, NO_PERMISSION = 0, 2, 3, 4, 5, 6, 7


class Operator(MeshTest):
    def test_an_operators_round(self):
        capture = Capture()
        with Mesh("--devices", "3", "--capture", capture.path) as mesh:
            mesh.await_learnt("agent1", "agent2")
            self.mesh, self.far, self.near = mesh, mesh.al_mac("agent2"), mesh.al_mac("agent1")
            self.check_show()
            self.check_results()
            self.check_led()
            self.check_resets()
            self.check_stale_result()
            self.check_reboots()
            self.check_failures_on_this_side()
        self.check_answers_leave_before_the_device_goes_down(capture)

    def app(self, *words, status=SUCCESS):
        done = self.mesh.exec("controller", "kv1905App", *words)
        self.assertEqual(done.returncode, status, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout + done.stderr

    def kcfg(self, *words):
        done = self.mesh.exec("agent2", "kcfg", *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.strip()

    def check_show(self):
        self.assertIn("KV-AGENT2", self.app("show", "devices"))
        devices = json.loads(self.app("show", "devices", "--json"))
        self.assertEqual(len(devices["devices"] if isinstance(devices, dict) else devices), 3)
        self.assertIn("KV-AGENT2", self.app("show", "device", self.far))
        self.app("show", "device", "02:ee:ee:ee:ee:ee", status=NO_DEVICE)

    def check_results(self):
        """Every documented result code of an agent reaches the tool."""
        radio = self.far[:-2] + "20"
        for words, code in (
                (("power", self.far, radio, "0103", "2"), 0),
                (("power", self.far, radio, "0105", "2"), 1),
                (("power", self.far, radio, "0103", "3"), 2),
                (("power", self.far, "00:00:00:00:00:00", "0103", "0"), 64),
                (("firmware", self.far, "1", "1", "http://x/image"), 16),
                (("firmware", self.far, "1", "1", "u" * 1023), 16),
                (("firmware", self.far, "1", "1", "u" * 1024), 16),
                (("command", self.far, "2", self.near), 7),
                (("command", self.far, "9", self.far, "1", "0", "u"), 16),
                (("command", self.far, "3", self.far, radio, "103", "0"), 0)):
            said = self.app("--json", *words, status=SUCCESS if code == 0 else REFUSED)
            self.assertEqual(json.loads(said.splitlines()[-1])["code"], code, words)
        self.assertIn("success", self.app("3", self.far, radio, "0103", "2"))

    def check_led(self):
        self.assertEqual(self.kcfg("get", "LED_CTRL.1.enable"), "1")
        self.app("led", self.far, "0")
        self.assertEqual(self.kcfg("get", "LED_CTRL.1.enable"), "0")
        poll(lambda: self.mesh.device_in("agent2")["LedStatus"] == "OFF", 5, "the LED state at the controller")
        self.assertIn("nothing was sent", self.app("led", "00:00:00:00:00:00", "1"))
        self.app("led", self.mesh.al_mac("controller"), "0")

    def check_resets(self):
        self.kcfg("set", "LED_CTRL.1.enable", "0")
        self.app("reset", self.far)
        poll(lambda: self.kcfg("get", "LED_CTRL.1.enable") == "1", 5, "the factory default")
        self.kcfg("set", "LED_CTRL.1.enable", "0")
        self.app("20", self.far)
        poll(lambda: self.kcfg("get", "LED_CTRL.1.enable") == "1", 5, "the partial reset")

    def check_stale_result(self):
        self.mesh.exec("controller", "sh", "-c", "echo 00 > /tmp/1905ReturnValue")
        self.app("--timeout", "1", "command", self.far, "7", status=NO_ANSWER)

    def check_reboots(self):
        for words in (("reboot", self.far), ("command", self.far, "2", self.far)):
            before = self.mesh.daemon("agent2")["pid"]
            self.app(*words)
            poll(lambda: self.mesh.daemon("agent2")["state"] == "running" and self.mesh.daemon("agent2")["pid"] != before, 10, "the restart")
            poll(lambda: self.mesh.device_in("agent2"), 10, "the restarted device in the topology")

    def check_failures_on_this_side(self):
        self.assertIn("02:ee", self.app("reboot", "02:ee:ee:ee:ee:ee", status=NO_DEVICE).lower())
        for words in (("reboot",), ("reboot", "nonsense"), ("firmware", self.far, "8", "0", "u"), ("nonsense",),
                      ("command", self.far, "w" * 2049)):
            self.app(*words, status=BAD_ARGUMENTS)
        sent = self.mesh.counters()["controller"]["FramesSent"]
        for words in (("command", self.far, "w" * 1500), ("firmware", self.far, "1", "1", "u" * 1500)):
            said = self.app("--timeout", "5", *words, status=1)
            self.assertIn("nothing was sent", said)
        self.mesh.exec("controller", "sh", "-c",
                       "sed -i s/^ModelName=.*/ModelName=Posted/ /tmp/.kv1905_conf && kv1905App post 301 /dev/null")
        poll(lambda: self.mesh.device_in("controller")["ModelName"] == "Posted", 10, "the reloaded name")
        if nobody_can_run_the_build():
            done = self.mesh.exec("controller", *NOBODY, "kv1905App", "reboot", self.far)
            self.assertEqual(done.returncode, NO_PERMISSION, done.stderr)
        self.mesh.call("stop", "controller")
        self.app("reboot", self.far, status=NO_DAEMON)

    def check_answers_leave_before_the_device_goes_down(self, capture):
        """Per message type: when agent2 sent it on its link, and when it announced itself anew after a restart."""
        rows = capture.fields(f"eth.src == {self.far} && frame.interface_name contains \"agent2\"",
                              "frame.time_epoch", "ieee1905.message_type", "ieee1905.vendor_specific.info")
        answers = {number: [float(time) for time, kind, info in rows
                            if kind == "0x0004" and info.replace(":", "")[16:20] == f"{number:04x}"]
                   for number in (5, 32)}
        hellos = [float(time) for time, kind, _ in rows if kind == "0x0001"]
        self.assertEqual(len(answers[5]), 1, "one reboot response; the remote reboot is answered as a command")
        for answered in (answers[5][0], answers[32][-1]):
            self.assertTrue(any(0 < hello - answered < 8 for hello in hellos),
                            "the answer leaves first, then the device restarts and announces itself")


if __name__ == "__main__":
    unittest.main()
