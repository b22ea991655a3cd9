"""A new agent finds its controller, takes over its settings, and both carry the plug-in's extensions."""

import os
import tempfile
import unittest

from lab import COMPLAINTS, Capture, Mesh, MeshTest, poll, run

PASSWORD = "Geheim 42! longer than the key of this mesh"


class Onboarding(MeshTest):
    def setUp(self):
        with tempfile.NamedTemporaryFile("w", delete=False) as secret:
            secret.write(PASSWORD + "\n")
        os.chmod(secret.name, 0o644)
        self.addCleanup(os.unlink, secret.name)
        self.secret = secret.name

    def kcfg(self, device, *words):
        done = self.mesh.exec(device, "kcfg", *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.strip()

    def password_of(self, device):
        return self.kcfg(device, "get", "NAT_INTF_SETTING.1.password")

    def country_of(self, device):
        """As stored per radio, and as the driver's tool says it."""
        stored = tuple(self.kcfg(device, "get", f"WIFI_RADIO.{number}.countryInBeacon") for number in (1, 2))
        driven = tuple(self.mesh.exec(device, "wl", "-i", name, "country_abbrev_override").stdout.strip().strip('"')
                       for name in ("wl0", "wl1"))
        return stored, driven

    def test_a_new_agent_takes_over_password_and_country(self):
        capture = Capture()
        with Mesh("--devices", "3", "--password-file", self.secret, "--capture", capture.path) as mesh:
            self.mesh = mesh
            mesh.await_learnt("agent1", "agent2")
            for agent in ("agent1", "agent2"):
                poll(lambda: self.password_of(agent) == PASSWORD, 20, f"the controller's password on {agent}")
                poll(lambda: self.country_of(agent) == (("DE", "DE"), ("DE", "DE")), 20, f"the country on {agent}")

            self.kcfg("controller", "set", "WIFI_RADIO.1.countryInBeacon", "US")
            self.kcfg("controller", "set", "SYNC_KEY_SOURCE.1.key", "")
            self.kcfg("agent2", "set", "SYNC_KEY_SOURCE.1.key", "")
            self.kcfg("agent2", "set", "NAT_INTF_SETTING.1.password", "other")
            mesh.call("stop", "agent2")
            mesh.call("start", "agent2")
            poll(lambda: self.password_of("agent2") == PASSWORD, 20, "the password, sent without a key")
            poll(lambda: self.country_of("agent2") == (("US", "US"), ("US", "US")), 20, "the new country")
            self.assertEqual(self.country_of("agent1")[0], ("DE", "DE"), "asked for when it joined, and not since")

            self.check_push()
            self.check_hostile_country()
            self.check_model()
            self.check_secrecy()
        self.check_capture(capture)

    def check_push(self):
        """An operator's commands reach every device by relayed multicast."""
        done = self.mesh.exec("controller", "kv1905App", "country", "E0/1")
        self.assertEqual(done.returncode, 0, done.stderr)
        for agent in ("agent1", "agent2"):
            poll(lambda: self.country_of(agent)[0] == ("E0/1", "E0/1"), 10, f"the pushed country on {agent}")
        self.mesh.exec("controller", "kv1905App", "post", "202", input="3 4E6577")
        poll(lambda: self.password_of("agent2") == "New", 10, "the pushed password where no key unscrambles it")

    def check_hostile_country(self):
        self.mesh.exec("controller", "kv1905App", "country", "$(a)")
        poll(lambda: "holds more than letters, digits and /" in self.mesh.log("agent2"), 10, "the refusal's line")
        self.assertEqual(self.country_of("agent2")[0], ("E0/1", "E0/1"))

    def check_model(self):
        for viewer, device in (("controller", "agent2"), ("agent2", "controller")):
            poll(lambda: self.mesh.device_in(device, viewer)["ApConfigurationList"], 10, f"{device}'s attribute at {viewer}")
        entry = self.mesh.device_in("agent2")
        self.assertEqual([(row["Mdid"], row["Enabled"]) for row in entry["MdidList"]], [(4660, True), (17, True)])
        self.assertEqual([(row["BandIndex"], row["Mdid"]) for row in entry["BssConfigList"]], [(0x80, 4660), (0x40, 17)])
        self.assertTrue({row["BandIndex"] for row in entry["ApConfigurationList"]} <= {0x80, 0x40})

    def check_secrecy(self):
        for device in self.mesh.names():
            self.assertNotIn(PASSWORD, self.mesh.log(device), "a password in a log")
            self.assertNotIn(PASSWORD, self.mesh.exec(device, "cat", "/tmp/kv1905_datamodel.json").stdout)
        self.assertNotIn(PASSWORD, run("ps", "-eo", "args").stdout)

    def check_capture(self, capture):
        self.assertEqual(capture.fields(COMPLAINTS, "frame.number"), [])
        extension = capture.fields("ieee1905.message_type == 0x0009 && wps.type == 0x1049", "wps.vendor_id",
                                   "wps.message_type")
        self.assertTrue(extension, "WSC messages with the vendor extension")
        self.assertTrue(capture.fields("wps.message_type == 0x04", "frame.number"), "an M1")
        self.assertTrue(capture.fields("wps.message_type == 0x05", "frame.number"), "an M2")

    def test_a_controller_without_the_password_file_changes_nobody(self):
        with Mesh("--devices", "2") as mesh:
            self.mesh = mesh
            mesh.await_learnt("agent1")
            poll(lambda: "Get admin password failed" in mesh.log("controller"), 20, "the controller's complaint")
            poll(lambda: self.country_of("agent1")[1] == ("DE", "DE"), 20, "the country all the same")
            self.assertEqual(self.password_of("agent1"), "admin")


if __name__ == "__main__":
    unittest.main()
