"""A new agent finds its controller, takes over its settings, and both carry the plug-in's extensions."""

import unittest

from lab import Capture, Mesh, MeshTest, poll, run, secret_file

PASSWORD = "Geheim 42! longer than the key of this mesh"


class Onboarding(MeshTest):
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
        with Mesh("--devices", "3", "--password-file", secret_file(self, PASSWORD), "--capture", capture.path) as mesh:
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
            self.check_model()
            self.check_secrecy()
        self.check_capture(capture)

    def check_push(self):
        """An operator's commands reach every device by relayed multicast."""
        self.app("country", "E0/1")
        for agent in ("agent1", "agent2"):
            poll(lambda: self.country_of(agent)[0] == ("E0/1", "E0/1"), 10, f"the pushed country on {agent}")
        self.mesh.exec("controller", "kv1905App", "post", "202", input="3 4E6577")
        poll(lambda: self.password_of("agent2") == "New", 10, "the pushed password where no key unscrambles it")

    def check_model(self):
        for viewer, device in (("controller", "agent2"), ("agent2", "controller")):
            poll(lambda: self.mesh.device_in(device, viewer)["ApConfigurationList"], 10, f"{device} at {viewer}")
        entry = self.mesh.device_in("agent2")
        self.assertEqual([(row["Mdid"], row["Enabled"]) for row in entry["MdidList"]], [(4660, True), (17, True)])
        self.assertEqual([row["BandIndex"] for row in entry["BssConfigList"]], [0x80, 0x40])

    def check_secrecy(self):
        for device in self.mesh.names():
            self.assertNotIn(PASSWORD, self.mesh.log(device), "a password in a log")
            self.assertNotIn(PASSWORD, self.mesh.exec(device, "cat", "/tmp/kv1905_datamodel.json").stdout)
        self.assertNotIn(PASSWORD, run("ps", "-eo", "args").stdout)

    def check_capture(self, capture):
        capture.check(0, 1, 69, 70, 76, 77)
        for kind in ("0x04", "0x05"):  # M1, M2
            told = capture.fields(f"ieee1905.message_type == 0x0009 && wps.message_type == {kind}",
                                  "kv1905.wsc.element.id")
            self.assertIn(("1,2,3,4,7",), told)
        self.assertIn(("0xc0,0xd0",), capture.fields("ieee1905.message_type == 0x0003", "kv1905.element.type"))


if __name__ == "__main__":
    unittest.main()
