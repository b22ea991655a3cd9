"""Real daemons with the plug-in, on real links."""

import os
import re
import signal
import subprocess
import unittest
import urllib.request
from collections import Counter

from lab import BUILD, Capture, Mesh, MeshTest, poll, run, secret_file

PASSWORD = "Geheim 42! longer than the key of this mesh"
ATTRIBUTES = ("RebootAllowed InterfacePowerAllowed FirmwareVersion ModelName IpAddress Mode ProtocolVersion "
              "Channel24G Channel5G ChannelExtra LedStatus Uptime").split()


# Two new agents find their controller, adopt its settings, and all exchange the plug-in's extensions.
class Line(MeshTest):
    def test_agents_join_and_every_frame_is_sound(self):
        capture = Capture()
        with Mesh("--devices", "3", "--password-file", secret_file(self, PASSWORD), "--capture", capture.path,
                  "--log-level", "7") as mesh:
            self.mesh = mesh
            mesh.await_learnt("agent1", "agent2")
            self.check_attributes()
            self.check_settings()
            self.check_push()
            self.check_model()
            self.check_secrecy()
        self.check_frames(capture)

    def password_of(self, device):
        return self.kcfg(device, "get", "NAT_INTF_SETTING.1.password")

    def country_of(self, device):
        # As stored per radio, and as the driver's tool prints it.
        stored = tuple(self.kcfg(device, "get", f"WIFI_RADIO.{number}.countryInBeacon") for number in (1, 2))
        driven = tuple(self.mesh.exec(device, "wl", "-i", name, "country_abbrev_override").stdout.strip().strip('"')
                       for name in ("wl0", "wl1"))
        return stored, driven

    def check_attributes(self):
        mesh = self.mesh
        for name in ("agent1", "agent2"):
            own, seen = mesh.device_in(name, viewer=name), mesh.device_in(name)
            self.assertEqual((seen["AttributeCount"], seen["RebootAllowed"], seen["Mode"]), (14, True, "Repeater"))
            self.assertEqual({key: seen[key] for key in ATTRIBUTES}, {key: own[key] for key in ATTRIBUTES})
        self.assertEqual([mesh.device_in(name)["Hops"] for name in mesh.names], [0, 1, 2])
        self.assertEqual([device["ManufacturerModel"] for device in mesh.model()["wfa-dataelements:Network"]["DeviceList"]],
                         mesh.names)
        mesh.exec("agent2", "sed", "-i", "s/^ModelName=.*/ModelName=Renamed/", "/tmp/.kv1905_conf")
        poll(lambda: mesh.device_in("agent2", viewer="agent2")["ModelName"] == "Renamed", 10, "the agent's own reload")
        os.kill(mesh.daemon("agent2")["pid"], signal.SIGUSR1)
        poll(lambda: mesh.device_in("agent2")["ModelName"] == "Renamed", 10, "the new name by multicast")

    def check_settings(self):
        for agent in ("agent1", "agent2"):
            poll(lambda: self.password_of(agent) == PASSWORD, 20, f"the controller's password on {agent}")
            poll(lambda: self.country_of(agent) == (("DE", "DE"), ("DE", "DE")), 20, f"the country on {agent}")

        self.kcfg("controller", "set", "WIFI_RADIO.1.countryInBeacon", "US")
        self.kcfg("controller", "set", "SYNC_KEY_SOURCE.1.key", "")
        self.kcfg("agent2", "set", "SYNC_KEY_SOURCE.1.key", "")
        self.kcfg("agent2", "set", "NAT_INTF_SETTING.1.password", "other")
        self.mesh.call("stop", "agent2")
        self.mesh.call("start", "agent2")
        poll(lambda: self.password_of("agent2") == PASSWORD, 20, "the password, sent without a key")
        poll(lambda: self.country_of("agent2") == (("US", "US"), ("US", "US")), 20, "the new country")
        self.assertEqual(self.country_of("agent1")[0], ("DE", "DE"), "requested when it joined, and not since")

    def check_push(self):
        # An operator's commands reach every device by relayed multicast.
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
        for device in self.mesh.names:
            self.assertNotIn(PASSWORD, self.mesh.log(device), "a password in a log")
            self.assertNotIn(PASSWORD, self.mesh.exec(device, "cat", "/tmp/kv1905_datamodel.json").stdout)
        self.assertNotIn(PASSWORD, run("ps", "-eo", "args").stdout)

    def check_frames(self, capture):
        capture.check(0, 1, 69, 70, 76, 77)
        relayed = capture.fields("ieee1905.relay_indicator == 1", "frame.interface_name", "eth.src",
                                 "ieee1905.1905_al_mac_addr", "ieee1905.message_type", "ieee1905.message_id",
                                 "ieee1905.fragment_id")
        self.assertTrue({"0x0001", "0x0004"} <= {row[3] for row in relayed}, "notifications and the vendor's messages")
        self.assertEqual([row for row, times in Counter(relayed).items() if times > 1], [],
                         "a relayed message passes a link once in one direction")
        for kind in ("0x04", "0x05"):  # M1, M2
            self.assertIn(("1,2,3,4,7",), capture.fields(
                f"ieee1905.message_type == 0x0009 && wps.message_type == {kind}", "kv1905.wsc.element.id"))
        self.assertIn(("0xc0,0xd0",), capture.fields("ieee1905.message_type == 0x0003", "kv1905.element.type"))


# What devices of other stacks send and expect.
class OtherStacks(MeshTest):
    def test_queries_are_answered_and_links_are_direct(self):
        capture = Capture()
        with Mesh("--devices", "4", "--capture", capture.path) as mesh:
            mesh.await_learnt("agent1", "agent2", "agent3")
            peer, agent = ("controller", "peer"), mesh.al_mac("agent1")
            links = mesh.exec(*peer, "ask-links", "--to", agent)
            self.assertRegex(links.stdout, f"^09 {agent.replace(':', '')}.*\n0a", links.stderr)
            identity = mesh.exec(*peer, "ask-identity", "--to", agent)
            self.assertRegex(identity.stdout, "^01 .*\n1a 01\n15 [0-9a-f]{384}\n", identity.stderr)
            searches = self.searches(capture)
            mesh.exec(*peer, "--al-mac", mesh.al_mac("controller"), "renew")
            poll(lambda: self.searches(capture) > searches, 10, "a search")
        capture.check()
        sent = [Counter(capture.fields(f"eth.type == {kind}", "frame.interface_name", "eth.src"))
                for kind in ("0x88cc", "0x893a && ieee1905.message_type == 0")]
        self.assertEqual(*sent)
        self.assertEqual(capture.fields("lldp && (_ws.malformed || _ws.expert)", "frame.number"), [])

    def searches(self, capture):
        return len(capture.fields("ieee1905.message_type == 0x0007", "frame.number"))


class Ring(MeshTest):
    def test_a_ring_with_an_agent_without_the_plug_in_settles(self):
        capture = Capture()
        with Mesh("--devices", "5", "--shape", "ring", "--no-plugin", "agent2", "--capture", capture.path) as mesh:
            mesh.await_learnt("agent1", "agent3", "agent4", seconds=40)
            for viewer in mesh.names:
                poll(lambda: len(mesh.model(viewer)["kv1905"]["DeviceList"]) == 5, 40, f"all devices at {viewer}")
            stranger = mesh.device_in("agent2")
            self.assertEqual((stranger["SpeaksProtocol"], stranger["AttributeCount"]), (False, 0))
            poll(lambda: self.is_quiet(mesh), 30, "quiet links")
            self.assertTrue(any(counters["DuplicatesDropped"] for counters in mesh.counters().values()),
                            "a loop brings relayed messages twice, and the second is dropped")
        capture.check()

    # A storm doubles its frames within milliseconds; a settled mesh sends next to nothing.
    def is_quiet(self, mesh):
        def stamps():
            return [mesh.model(name)["wfa-dataelements:Network"]["TimeStamp"] for name in mesh.names]
        before, times = mesh.counters(), stamps()
        poll(lambda: all(now != then for now, then in zip(stamps(), times)), 10, "fresh JSON files")
        after = mesh.counters()
        return all(after[name]["FramesSent"] - before[name]["FramesSent"] < 20 for name in mesh.names)


class Lab(MeshTest):
    TOPOLOGY = "device controller KV-HOME\ndevice hall\ndevice attic\nlink controller hall\nlink hall attic wifi"

    def test_a_running_mesh_can_be_changed_and_logs_no_error(self):
        with Mesh("--topology", secret_file(self, self.TOPOLOGY), "--stations", "1") as mesh:
            self.mesh = mesh
            self.await_hops({"KV-HOME": 0, "hall": 1, "attic": 2})
            self.assertEqual([each["MediaType"] for each in mesh.device_in("attic")["NeighborList"]], [0x0108])
            self.lab("link", "down", "attic", "hall")
            self.assertEqual([link["up"] for device in mesh.status()["devices"] for link in device["links"]],
                             [True, True, False, False])
            self.lab("add", "garden", "--link", "attic")
            self.lab("link", "up", "attic", "hall")
            done = mesh.call("link", "set", "hall", "attic", "--loss", "10", "--delay", "5")
            self.assertTrue(done.returncode == 0 or "no netem" in done.stderr, done.stderr)
            self.await_hops({"KV-HOME": 0, "hall": 1, "attic": 2, "garden": 3})
            self.lab("remove", "attic")
            self.assertEqual([device["name"] for device in mesh.status()["devices"]], ["controller", "hall", "garden"])
            self.lab("add", "attic")
            self.await_hops({"KV-HOME": 0, "hall": 1, "attic": 2, "garden": 3})
            self.check_outputs()
            lines = "".join(map(mesh.log, (*mesh.names, "garden"))).splitlines()
            self.assertEqual([line for line in lines if re.search(" error: (?!.TLV. Bss insert)| output: ", line)], [])

    def lab(self, *words):
        done = self.mesh.call(*words)
        self.assertEqual((done.returncode, done.stderr), (0, ""), words)

    def await_hops(self, wanted):
        def hops():
            return {device["ModelName"]: device["Hops"] for device in self.mesh.model()["kv1905"]["DeviceList"]}
        poll(lambda: hops() == wanted, 30, f"{wanted} at the controller")

    def check_outputs(self):
        capture = Capture()
        with open(capture.path, "wb") as file:
            subprocess.run([*self.mesh.command, "capture", "-", "--seconds", "12"], stdout=file,
                           stderr=subprocess.DEVNULL, check=True)
        capture.check(36)
        view = subprocess.Popen([*self.mesh.command, "view", "--port", "0"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (view.kill(), view.communicate()))
        with urllib.request.urlopen(view.stdout.readline().split()[0]) as page:
            self.assertIn(b"KV-HOME", page.read())

    # As another user, who can use this build only where its directory is open to others.
    def test_an_ordinary_users_mesh_works_and_leaves_nothing_behind(self):
        nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
        can_be_nobody = (os.geteuid() == 0 and run(*nobody, "test", "-r", f"{BUILD}/lib/libkvMAP1905.so").returncode == 0
                         and run(*nobody, "unshare", "--user", "--net", "true").returncode == 0)
        prefix = nobody if can_be_nobody else ()

        def traces(name):
            return run("ip", "-o", "link").stdout.count("eth"), run("pgrep", "-f", name).stdout.strip()

        links = traces("no-such-mesh")[0]
        # Looks like a supervisor with the plan of another version of the lab.
        other = subprocess.Popen([*prefix, "tail", "mesh", "supervise", "-F"], stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (other.kill(), other.wait()))
        with Mesh("--devices", "2", prefix=prefix) as mesh:
            mesh.await_learnt("agent1")
            os.kill(mesh.status()["supervisorPid"], signal.SIGKILL)
            poll(lambda: traces(mesh.name) == (links, ""), 10, "end of every process and link")
            self.assertEqual(mesh.call("status").returncode, 1)


if __name__ == "__main__":
    unittest.main()
