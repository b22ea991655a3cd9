"""Real daemons with the plug-in, on real links."""

import json
import os
import signal
import unittest
from collections import Counter

from lab import COMPLAINTS, NOBODY, Capture, Mesh, MeshTest, nobody_can_run_the_build, poll, run

VENDOR_MESSAGE = "0x0004"
NOTIFICATION = "0x0001"


class Line(MeshTest):
    def test_controller_learns_both_agents_and_every_frame_is_sound(self):
        capture = Capture()
        with Mesh("--devices", "3", "--capture", capture.path) as mesh:
            mesh.await_learnt("agent1", "agent2")
            self.check_attributes(mesh)
            self.check_changed_name(mesh)
            self.check_multicast_response(mesh)
        self.check_frames(capture)

    def check_attributes(self, mesh):
        for name in ("agent1", "agent2"):
            own, seen = mesh.device_in(name, viewer=name), mesh.device_in(name)
            self.assertEqual(seen["AttributeCount"], 14)
            for attribute in ("RebootAllowed", "InterfacePowerAllowed", "FirmwareVersion", "ModelName", "IpAddress",
                              "Mode", "ProtocolVersion", "Channel24G", "Channel5G", "ChannelExtra", "LedStatus",
                              "Uptime"):
                self.assertEqual(seen[attribute], own[attribute], attribute)
            self.assertTrue(seen["RebootAllowed"])
            self.assertEqual(seen["Mode"], "Repeater")
        self.assertEqual([mesh.device_in(name)["Hops"] for name in ("controller", "agent1", "agent2")], [0, 1, 2])
        devices = mesh.model()["wfa-dataelements:Network"]
        self.assertEqual(devices["NumberOfDevices"], 3)
        self.assertEqual({device["ManufacturerModel"] for device in devices["DeviceList"]},
                         {"KV-CONTROLLER", "KV-AGENT1", "KV-AGENT2"})

    def check_changed_name(self, mesh):
        mesh.exec("agent2", "sed", "-i", "s/^ModelName=.*/ModelName=Renamed/", "/tmp/.kv1905_conf")
        poll(lambda: mesh.device_in("agent2", viewer="agent2")["ModelName"] == "Renamed", 10, "the agent's own reload")
        os.kill(mesh.daemon("agent2")["pid"], signal.SIGUSR1)
        poll(lambda: mesh.device_in("agent2")["ModelName"] == "Renamed", 10, "the new name at the controller")

    def check_multicast_response(self, mesh):
        self.assertIn("send multicast config response msgId", mesh.log("agent2"))

    def check_frames(self, capture):
        self.assertEqual(capture.fields(COMPLAINTS, "frame.number"), [])
        vendor = capture.fields(f"ieee1905.message_type == {VENDOR_MESSAGE}", "ieee1905.tlv_type",
                                "ieee1905.vendor_specific.oui")
        self.assertTrue(vendor)
        for types, oui in vendor:
            self.assertEqual((types.split(",")[0], oui), ("0x0b", str(0x024EA7)))
        relayed = capture.fields("ieee1905.relay_indicator == 1", "frame.interface_name", "eth.src",
                                 "ieee1905.1905_al_mac_addr", "ieee1905.message_type", "ieee1905.message_id",
                                 "ieee1905.fragment_id")
        self.assertTrue({VENDOR_MESSAGE, NOTIFICATION} <= {row[3] for row in relayed})
        self.assertEqual([row for row, times in Counter(relayed).items() if times > 1], [],
                         "a relayed message passes a link once in one direction")

    def test_a_silent_agent_is_asked_three_times_and_learnt_again(self):
        with Mesh("--devices", "3", "--controller-args", "--query-interval 6") as mesh:
            mesh.await_learnt("agent1", "agent2")
            mesh.call("stop", "agent2")
            mac = mesh.al_mac("agent2").upper()
            for retry in (0, 1):
                poll(lambda: any(f"resend vendor query msg: AlMac {mac}" in line and f"retry {retry}," in line
                                 for line in mesh.log("controller").splitlines()), 25, f"resend after retry {retry}")
            mesh.exec("agent2", "sed", "-i", "s/^ModelName=.*/ModelName=Returned/", "/tmp/.kv1905_conf")
            mesh.call("start", "agent2")
            poll(lambda: mesh.device_in("agent2")["ModelName"] == "Returned", 15, "the restarted agent's configuration")

    def test_a_device_that_falls_silent_is_forgotten(self):
        with Mesh("--devices", "3", "--daemon-args", "--discovery-interval 2") as mesh:
            mesh.await_learnt("agent1", "agent2")
            mesh.call("stop", "agent2")
            poll(lambda: mesh.device_in("agent2") is None, 15, "the silent agent's removal")
            self.assertTrue(mesh.device_in("agent1"))


class Shapes(MeshTest):
    def test_a_ring_with_an_agent_without_the_plug_in_settles(self):
        capture = Capture()
        with Mesh("--devices", "5", "--shape", "ring", "--no-plugin", "agent2", "--capture", capture.path) as mesh:
            mesh.await_learnt("agent1", "agent3", "agent4", seconds=40)
            for viewer in mesh.names():
                poll(lambda: len(mesh.model(viewer)["kv1905"]["DeviceList"]) == 5, 40, f"all devices at {viewer}")
            stranger = mesh.device_in("agent2")
            self.assertFalse(stranger["SpeaksProtocol"])
            self.assertEqual(stranger["AttributeCount"], 0)
            self.check_quiet(mesh)
        self.assertEqual(capture.fields(COMPLAINTS, "frame.number"), [])

    def check_quiet(self, mesh):
        """A storm doubles its frames within milliseconds; a settled mesh sends next to nothing."""
        marker = json.loads(mesh.call("status", "--json").stdout)
        self.assertTrue(all(device["daemon"]["state"] == "running" for device in marker["devices"]))

        def is_quiet():
            before, after = mesh.counters(), None
            times = {name: mesh.model(name)["wfa-dataelements:Network"]["TimeStamp"] for name in mesh.names()}
            poll(lambda: all(mesh.model(name)["wfa-dataelements:Network"]["TimeStamp"] != times[name]
                             for name in mesh.names()), 10, "fresh JSON files")
            after = mesh.counters()
            return all(after[name]["FramesSent"] - before[name]["FramesSent"] < 20 for name in mesh.names())
        poll(is_quiet, 30, "quiet links")
        self.assertTrue(any(counters["DuplicatesDropped"] > 0 for counters in mesh.counters().values()),
                        "a loop brings relayed messages twice, and the second is dropped")


class Neighbours(MeshTest):
    """What a hostile neighbour sends as raw frames."""

    AL = "{al}"
    SOURCE = "02bad0bad0ba"

    def test_bad_frames_are_logged_and_the_next_good_one_works(self):
        with Mesh("--devices", "2") as mesh:
            mesh.await_learnt("agent1")
            target = mesh.al_mac("agent1").replace(":", "")

            def frame(message_type, body, destination=target, flags="80"):
                return f"{destination}{self.SOURCE}893a0000{message_type}00010000"[:-4] + f"00{flags}{body}"

            def vendor(value, end="000000"):
                return frame("0004", f"0b{len(value) // 2:04x}{value}{end}")

            maker = "024ea7" + self.SOURCE + "0001"
            frames = {
                "header alone": frame("0004", ""),
                "no end of message": frame("0004", "0b0003024ea7"),
                "TLV longer than the frame": frame("0004", "0bffff024ea7"),
                "vendor TLV of 2 bytes": vendor("024e"),
                "vendor TLV of 3 bytes": vendor("024ea7"),
                "foreign OUI": vendor("aabbcc00112233"),
                "unknown type 13": vendor(maker + "000d0000"),
                "type 78": vendor(maker + "004e0000"),
                "reserved type 10": vendor(maker + "000a0000"),
                "payload length past the TLV": vendor(maker + "000004000102"),
                "response with a lying attribute": vendor(maker + "0001000a" + self.SOURCE + "01" + "07ffff"),
                "oversized": vendor(maker + "00000006" + "00" * 1400),
                "topology response without its device": frame("0003", "000000"),
                "discovery with a short AL MAC": frame("0000", "010003aabbcc000000", "0180c2000013"),
                "fragment without an end": frame("0004", "0b0003024ea7000000", flags="00"),
            }
            script = ("import socket,sys\ns=socket.socket(socket.AF_PACKET,socket.SOCK_RAW)\ns.bind(('eth0',0))\n"
                      "for line in sys.stdin: s.send(bytes.fromhex(line.strip()))\n")
            done = mesh.exec("controller", "python3", "-c", script, input="\n".join(frames.values()) + "\n")
            self.assertEqual(done.returncode, 0, done.stderr)
            for line, times in (("parse unsupported vendor OUI aa:bb:cc", 1), ("msg type 13 is unsoppourted", 1),
                                ("msg type 78 is unsoppourted", 1), ("failed to parse the vendor specific TLV", 4)):
                poll(lambda: mesh.log("agent1").count(line) >= times, 5, f"'{line}' {times} times")
            answers = mesh.log("agent1").count("send config response msgId")
            mesh.exec("controller", "python3", "-c", script, input=vendor(maker + "00000006" + "00" * 6) + "\n")
            poll(lambda: mesh.log("agent1").count("send config response msgId") > answers, 5, "the good query's answer")


class Lab(MeshTest):
    def test_nothing_stays_behind(self):
        def traces(name):
            links = run("ip", "-o", "link").stdout.count("eth") if os.geteuid() == 0 else 0
            return links, run("pgrep", "-f", name).stdout.strip()

        before = traces("no-such-mesh")[0]
        with Mesh("--devices", "2") as mesh:
            supervisor = json.loads(mesh.call("status", "--json").stdout)["supervisorPid"]
            os.kill(supervisor, 9)
            poll(lambda: traces(mesh.name) == (before, ""), 10, "end of every process and link")
            self.assertEqual(mesh.call("status").returncode, 1)

    @unittest.skipIf(os.geteuid() != 0, "the other tests already run as an ordinary user")
    def test_works_as_an_ordinary_user(self):
        if run(*NOBODY, "unshare", "--user", "--net", "true").returncode != 0:
            self.skipTest("this machine allows ordinary users no namespaces")
        if not nobody_can_run_the_build():
            self.skipTest("this tree is not readable for other users")
        with Mesh("--devices", "2", prefix=NOBODY) as mesh:
            mesh.await_learnt("agent1")


if __name__ == "__main__":
    unittest.main()
