#!/usr/bin/env python3
"""The checker finds nothing in a session without fault, and each planted violation under its identifiers; the broker
and the decoder do what the checker relies on."""
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

import assertions
import broker
import check_session
import datatypes
import encoder
import mqtt
import payload
import planted
import planted_payloads  # noqa: F401  (registers its violations)
import planted_session  # noqa: F401
import recording
import synthetic

LIMIT_S = 30


def failed(forms):
    outcomes = check_session.check_entries(synthetic.entries_of(forms))
    return {name for name, outcome in outcomes.items() if outcome.failures}


class Checker(unittest.TestCase):
    def test_faultless_session_has_no_failure_and_every_identifier_is_seen(self):
        outcomes = check_session.check_entries(synthetic.entries_of(synthetic.make_session()))
        self.assertEqual([], [name for name, outcome in outcomes.items() if outcome.failures])
        self.assertEqual([], [name for name, outcome in outcomes.items() if not outcome.seen])

    def test_each_planted_violation_is_found_and_each_identifier_can_fail(self):
        ever_failed = set()
        for violation in planted.PLANTS:
            forms = synthetic.make_session()
            violation.change(forms)
            found = failed(forms)
            ever_failed |= found
            with self.subTest(violation.name):
                self.assertTrue(violation.identifiers)
                self.assertLessEqual(set(violation.identifiers), found)
        self.assertEqual(set(), {*assertions.CHECKED, *assertions.PROMISES} - ever_failed)

    def test_table_has_each_of_the_286_assertions_once(self):
        self.assertEqual(286, len({*assertions.CHECKED, *assertions.REASONS}))
        self.assertEqual(286, len(assertions.CHECKED) + len(assertions.REASONS))

    def test_short_session_leaves_identifiers_unseen(self):
        outcomes = check_session.check_entries(synthetic.entries_of(synthetic.make_session())[:12])
        self.assertEqual(0, outcomes["topics-ddata-mqtt"].seen)

    def test_exit_code_tells_passed_failed_and_unreadable(self):
        forms = synthetic.make_session()
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "record")
            birth = planted.sent(forms, "NBIRTH")[0]
            for wanted, change in ((0, lambda: None), (1, lambda: birth.update(qos=1)), (2, forms.clear)):
                change()
                record = recording.Recording(path)
                for entry in synthetic.entries_of(forms):
                    record.add(**entry)
                record.close()
                command = [sys.executable, "-B", check_session.__file__, str(path), "--edge", "Plant/press1"]
                done = subprocess.run(command, capture_output=True, timeout=LIMIT_S, check=False)
                self.assertEqual(wanted, done.returncode, done.stdout.decode() + done.stderr.decode())


class Decoder(unittest.TestCase):
    def findings(self, data):
        return payload.decode(data)[1]

    def test_metric_is_read_as_it_was_written(self):
        data = encoder.encode({"timestamp": 5, "seq": 255, "metrics": [
            {"name": "a", "alias": 7, "datatype": 9, "float_value": 1.5, "is_historical": True}]})
        decoded, findings = payload.decode(data)
        self.assertEqual([], findings)
        self.assertEqual((5, 255), (decoded.timestamp, decoded.seq))
        self.assertEqual(payload.Metric(name="a", alias=7, datatype=9, is_historical=True, value_field="float_value",
                                        value=1.5), decoded.metrics[0])

    def test_what_the_schema_does_not_have_is_found(self):
        self.assertIn("a field 6", self.findings(b"\x32\x00")[0])
        self.assertIn("wire type 0", self.findings(b"\x10\x00")[0])
        self.assertIn("stands twice", self.findings(b"\x18\x00\x18\x01")[0])
        self.assertIn("is not UTF-8", self.findings(b"\x22\x01\xFF")[0])
        self.assertIn("which no bool is", self.findings(b"\x12\x02\x38\x02")[0])
        self.assertIn("two values", self.findings(b"\x12\x04\x50\x01\x58\x01")[0])
        self.assertIn("longer than it need be", self.findings(b"\x18\x80\x00")[0])
        self.assertIn("cut off", self.findings(b"\x12\x05\x00")[0])
        self.assertIn("wire type 3", self.findings(b"\x13")[0])

    def test_arrays_are_unpacked(self):
        self.assertEqual([1, -2], datatypes.unpack_array(24, b"\1\0\0\0\xFE\xFF\xFF\xFF"))
        self.assertEqual([False, False, True], datatypes.unpack_array(32, b"\3\0\0\0\x3F"))
        self.assertEqual(["ABC", "", "hello"], datatypes.unpack_array(33, b"ABC\0\0hello\0"))
        self.assertEqual([1.5], datatypes.unpack_array(30, struct.pack("<f", 1.5)))
        for code, data in ((24, b"\1\2\3"), (32, b"\3\0\0\0"), (32, b"\1\0"), (33, b"a")):
            with self.assertRaises(ValueError):
                datatypes.unpack_array(code, data)

    def test_integers_keep_to_their_range(self):
        for code, value in ((1, 0x80), (1, 0xFFFFFF80), (5, 255), (4, 2 ** 64 - 1), (3, 0x80000000)):
            field = datatypes.VALUE_FIELDS[code]
            self.assertEqual("", datatypes.value_problem(code, field, value))
        for code, value in ((1, 0x100), (1, 0xFFFFFF7F), (5, 256), (2, 0x10000)):
            self.assertIn("out of the range", datatypes.value_problem(code, "int_value", value))


class Client:
    """Speaks MQTT by hand."""

    def __init__(self, port, data):
        self.connection = socket.create_connection(("127.0.0.1", port), timeout=LIMIT_S)
        self.buffer = b""
        self.connection.sendall(data)

    def send(self, data):
        self.connection.sendall(data)

    def receive(self, version=4):
        """The next packet; nothing when the connection ends."""
        while True:
            whole = mqtt.split(self.buffer)
            if whole is not None:
                self.buffer = self.buffer[len(whole):]
                return mqtt.parse(whole, version)
            try:
                data = self.connection.recv(65536)
            except ConnectionResetError:
                data = b""
            if not data:
                return None
            self.buffer += data

    def close(self):
        self.connection.close()


def message(topic, body, qos=0, retain=False, identifier=0, version=4):
    return mqtt.Packet(mqtt.PUBLISH, version, identifier, topic, body, qos, retain)


class Broker(unittest.TestCase):
    def setUp(self):
        self.record = recording.Recording()
        self.broker = broker.Broker(self.record)
        self.addCleanup(self.broker.stop)

    def client(self, name, version=4, will=None, filters=(), keep_alive_s=10):
        client = Client(self.broker.port, mqtt.connect(name, version, will, keep_alive_s))
        self.addCleanup(client.close)
        self.assertEqual((mqtt.CONNACK, 0), (client.receive(version).kind, 0))
        if filters:
            client.send(mqtt.subscribe(1, filters, version))
            self.assertEqual(mqtt.SUBACK, client.receive(version).kind)
        return client

    def event(self, name):
        return self.record.wait_for(lambda entry: entry.get("event") == name, LIMIT_S)

    def test_publication_reaches_matching_subscribers_with_the_lower_qos(self):
        for version in (4, 5):
            taker = self.client(f"taker{version}", version, filters=[("a/+/c/#", 1)])
            giver = self.client(f"giver{version}", version)
            giver.send(mqtt.publish(message("a/b/d", b"no", version=version)))
            giver.send(mqtt.publish(message("a/b/c", b"0", version=version)))
            giver.send(mqtt.publish(message("a/b/c/e", b"1", 1, identifier=9, version=version)))
            answer = giver.receive(version)
            self.assertEqual((mqtt.PUBACK, 9), (answer.kind, answer.identifier))
            self.assertEqual([(b"0", 0), (b"1", 1)], [(each.payload, each.qos) for each in
                                                      (taker.receive(version), taker.receive(version))])

    def test_retained_message_waits_for_subscribers_and_an_empty_one_removes_it(self):
        self.broker.publish("state", b"on", retain=True)
        taken = self.client("first", filters=[("state", 1)]).receive()
        self.assertEqual((b"on", True), (taken.payload, taken.retain))
        self.broker.publish("state", b"", retain=True)
        second = self.client("second", filters=[("state", 1)])
        self.broker.publish("state", b"later")
        self.assertEqual(b"later", second.receive().payload)

    def test_will_is_published_for_a_lost_client_and_not_behind_a_goodbye(self):
        taker = self.client("taker", filters=[("will/#", 1)])
        self.client("polite", will=message("will/polite", b"")).send(mqtt.disconnect())
        self.event("close")
        self.client("told", 5, will=message("will/told", b"", 1)).send(mqtt.disconnect(5, mqtt.WITH_WILL))
        self.assertEqual("will/told", taker.receive().topic)
        self.client("lost", will=message("will/lost", b"", 1)).close()
        self.assertEqual(("will/lost", 1), (lambda taken: (taken.topic, taken.qos))(taker.receive()))

    def test_second_client_of_one_id_ends_the_first(self):
        first = self.client("same")
        self.client("same")
        self.assertIsNone(first.receive())

    def test_silent_client_is_dropped_after_its_keep_alive(self):
        self.assertIsNone(self.client("silent", keep_alive_s=1).receive())
        self.assertIn("keep-alive", self.event("close")["why"])

    def test_acknowledgments_are_swallowed_held_and_released(self):
        client = self.client("client")
        self.broker.set_pubacks("swallow")
        client.send(mqtt.publish(message("a", b"", 1, identifier=1)) + mqtt.build(mqtt.PINGREQ, 0, b""))
        self.assertEqual(mqtt.PINGRESP, client.receive().kind)
        self.broker.set_pubacks("hold")
        client.send(mqtt.publish(message("a", b"", 1, identifier=2)) + mqtt.build(mqtt.PINGREQ, 0, b""))
        self.assertEqual(mqtt.PINGRESP, client.receive().kind)
        self.broker.release_pubacks()
        self.assertEqual(2, client.receive().identifier)

    def test_frozen_broker_answers_when_it_is_thawed(self):
        client = self.client("client")
        self.broker.freeze()
        client.send(mqtt.build(mqtt.PINGREQ, 0, b""))
        late = Client(self.broker.port, mqtt.connect("late"))
        self.addCleanup(late.close)
        self.broker.thaw()
        self.assertEqual(mqtt.PINGRESP, client.receive().kind)
        self.assertEqual(mqtt.CONNACK, late.receive().kind)
        thawed = self.event("thawed")["n"]
        self.assertEqual([], [entry for entry in self.record.entries[self.event("frozen")["n"]:thawed - 1]])

    def test_broker_that_was_down_comes_up_on_its_port(self):
        client, port = self.client("client"), self.broker.port
        self.broker.go_down()
        self.assertIsNone(client.receive())
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.1", port), timeout=LIMIT_S)
        self.broker.come_up()
        self.assertEqual(port, self.broker.port)
        self.client("client")

    def test_record_holds_every_packet_byte_by_byte(self):
        sent = mqtt.publish(message("topic", b"body", 1, identifier=3))
        client = self.client("client")
        client.send(sent[:4])
        client.send(sent[4:] + mqtt.disconnect())
        self.event("close")
        packets = [(entry["dir"], entry["hex"]) for entry in self.record.entries if "hex" in entry]
        self.assertEqual([("in", mqtt.connect("client", 4, None, 10).hex()), ("out", "20020000"), ("in", sent.hex()),
                          ("out", "40020003"), ("in", "e000")], packets)

    def test_bytes_that_are_no_packet_end_the_connection(self):
        client = self.client("client")
        client.send(b"\x30\x02\x00\x09")
        self.assertIsNone(client.receive())


if __name__ == "__main__":
    unittest.main()
