"""Real daemons with the plug-in, on real links."""

import os
import re
import signal
import time
from collections import Counter
from pathlib import Path

from lab import Capture, Mesh, MeshTest, poll, run, secret_file

PASSWORD = "Geheim 42! longer than the key of this mesh"
ATTRIBUTES = ("RebootAllowed InterfacePowerAllowed FirmwareVersion ModelName IpAddress Mode ProtocolVersion "
              "Channel24G Channel5G ChannelExtra LedStatus Uptime").split()


# Two new agents find their controller, adopt its settings, and all exchange the plug-in's extensions.
class Line(MeshTest):
    def test_agents_join_and_every_frame_is_well_formed(self):
        capture = Capture()
        with Mesh("--devices", "3", "--password-file", secret_file(self, PASSWORD), "--capture", capture.path,
                  "--log-level", "7") as mesh:
            self.mesh = mesh
            mesh.await_known("agent1", "agent2")
            self.check_attributes()
            self.check_settings()
            self.check_push()
            self.check_model()
            self.check_secrecy()
        self.check_frames(capture)

    def country_of(self, device):
        return tuple(self.kcfg(device, "get", f"WIFI_RADIO.{number}.countryInBeacon") for number in (1, 2))

    def check_attributes(self):
        mesh = self.mesh
        for name in ("agent1", "agent2"):
            own, seen = mesh.device_in(name, viewer=name), mesh.device_in(name)
            self.assertEqual((seen["AttributeCount"], seen["RebootAllowed"], seen["Mode"]), (14, True, "Repeater"))
            self.assertEqual({key: seen[key] for key in ATTRIBUTES}, {key: own[key] for key in ATTRIBUTES})
        self.assertEqual([mesh.device_in(name)["Hops"] for name in mesh.names], [0, 1, 2])
        self.rename("agent2", "Renamed")
        poll(lambda: mesh.device_in("agent2", viewer="agent2")["ModelName"] == "Renamed", 10, "the agent's own reload")
        os.kill(mesh.daemon("agent2")["pid"], signal.SIGUSR1)
        poll(lambda: mesh.device_in("agent2")["ModelName"] == "Renamed", 10, "the new name by multicast")

    def check_settings(self):
        for agent in ("agent1", "agent2"):
            poll(lambda: self.kcfg(agent, "get", "NAT_INTF_SETTING.1.password") == PASSWORD, 20, f"{agent}'s password")
            poll(lambda: self.country_of(agent) == ("DE", "DE"), 20, f"the country on {agent}")

    def check_push(self):
        # An operator's commands reach every device by relayed multicast.
        self.app("country", "E0/1")
        for agent in ("agent1", "agent2"):
            poll(lambda: self.country_of(agent) == ("E0/1", "E0/1"), 10, f"the pushed country on {agent}")

    def check_model(self):
        poll(lambda: self.mesh.device_in("agent2")["ApConfigurationList"], 10, "the agent's AP configuration")
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


# Messages that devices of other stacks send, and the responses that they expect.
class OtherStacks(MeshTest):
    def test_queries_are_answered_and_links_are_direct(self):
        capture = Capture()
        with Mesh("--devices", "4", "--capture", capture.path) as mesh:
            mesh.await_known("agent1", "agent2", "agent3")
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

    def searches(self, capture):
        return len(capture.fields("ieee1905.message_type == 0x0007", "frame.number"))


# The plug-in waits for its commands.
class HungCommand(MeshTest):
    def test_hung_command_is_named_and_killed(self):
        with Mesh("--devices", "2") as mesh:
            mesh.await_known("agent1")
            pid = mesh.daemon("agent1")["pid"]
            mesh.exec("agent1", "sh", "-c", "printf '#!/bin/sh\nsleep 60\n' >/tmp/hung && chmod +x /tmp/hung && "
                      "ln -sf /tmp/hung /.room/bin/ifconfig")  # the first only in this device's PATH
            os.kill(pid, signal.SIGUSR1)
            poll(lambda: "killed commands: sh, ifconfig," in mesh.log("agent1"), 20, "the end of the command")
            self.assertIn(" has not responded for 5 s; commands: sh, ifconfig,", mesh.log("agent1"))
            result = mesh.exec("controller", "peer", "ask-identity", "--to", mesh.al_mac("agent1"))
            self.assertEqual(result.returncode, 0, result.stderr)
            os.kill(pid, signal.SIGUSR1)
            time.sleep(1)  # until the command hangs
            os.kill(int(Path(f"/proc/{pid}/stat").read_text().split()[3]), signal.SIGTERM)  # its supervisor
            poll(lambda: not Path(f"/proc/{pid}").exists(), 1, "the end of the daemon")
            self.assertIn(" is killed; commands: sh, ifconfig,", mesh.log("agent1"))


class Ring(MeshTest):
    def test_a_ring_with_an_agent_without_the_plug_in_settles(self):
        capture = Capture()
        with Mesh("--devices", "5", "--shape", "ring", "--no-plugin", "agent2", "--capture", capture.path) as mesh:
            mesh.await_known("agent1", "agent3", "agent4", seconds=40)
            for viewer in mesh.names:
                poll(lambda: len(mesh.model(viewer)["kv1905"]["DeviceList"]) == 5, 40, f"all devices at {viewer}")
            device = mesh.device_in("agent2")
            self.assertEqual((device["SpeaksProtocol"], device["AttributeCount"]), (False, 0))
            poll(lambda: self.is_quiet(mesh), 30, "quiet links")
            self.assertTrue(any(mesh.model(name)["kv1905"]["Counters"]["DuplicatesDropped"] for name in mesh.names),
                            "a loop brings relayed messages twice, and the second is dropped")
        capture.check()
        self.assertEqual(capture.fields("lldp && (_ws.malformed || _ws.expert)", "frame.number"), [])

    # A storm doubles its frames within milliseconds; a settled mesh is nearly silent.
    def is_quiet(self, mesh):
        def figures():
            models = [mesh.model(name) for name in mesh.names]
            return [(model["wfa-dataelements:Network"]["TimeStamp"], model["kv1905"]["Counters"]["FramesSent"])
                    for model in models]
        before = figures()
        poll(lambda: all(now[0] != then[0] for now, then in zip(figures(), before)), 10, "fresh JSON files")
        return all(now[1] - then[1] < 20 for now, then in zip(figures(), before))


class Lab(MeshTest):
    TOPOLOGY = "device controller KV-HOME\ndevice hall\ndevice attic\nlink controller hall\nlink hall attic wifi"

    def test_a_mesh_can_change_and_leaves_no_files_or_processes(self):
        with Mesh("--topology", secret_file(self, self.TOPOLOGY), "--stations", "1") as mesh:
            self.mesh = mesh
            self.await_hops({"KV-HOME": 0, "hall": 1, "attic": 2})
            self.assertEqual([each["MediaType"] for each in mesh.device_in("attic")["NeighborList"]], [0x0108])
            self.lab("exec", "controller", "--", "sh", "-c", "kv1905App monitor >/tmp/monitored 2>&1 &")
            poll(lambda: " in " in self.monitored(), 20, "messages at the monitor")
            self.lab("link", "down", "attic", "hall")
            poll(lambda: "link between hall and attic disappeared" in self.monitored(), 10, "the link's end")
            self.lab("add", "garden", "--link", "attic")
            self.lab("link", "up", "attic", "hall")
            self.await_hops({"KV-HOME": 0, "hall": 1, "attic": 2, "garden": 3})
            self.lab("remove", "attic")
            self.assertEqual([device["name"] for device in mesh.status()["devices"]], ["controller", "hall", "garden"])
            lines = "".join(map(mesh.log, ("controller", "hall", "garden"))).splitlines()
            self.assertEqual([line for line in lines if re.search(" error: (?!.TLV. Bss insert)| output: ", line)], [])
            os.kill(mesh.status()["supervisorPid"], signal.SIGKILL)
            poll(lambda: not run("pgrep", "-f", mesh.name).stdout, 10, "end of every process")
            self.assertEqual(mesh.call("status").returncode, 1)

    def monitored(self):
        return self.mesh.exec("controller", "cat", "/tmp/monitored").stdout

    def await_hops(self, wanted):
        def hops():
            return {device["ModelName"]: device["Hops"] for device in self.mesh.model()["kv1905"]["DeviceList"]}
        poll(lambda: hops() == wanted, 30, f"{wanted} at the controller")
