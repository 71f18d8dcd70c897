#!/usr/bin/python3
"""Proves api/openapi.json true of the program, and the program of it.

Nothing is known here but the description. It says what a request makes the program ask the switch, and how the answer
follows from what the switch says: so each call and each answer is foretold whole, and compared to the byte. The switch
is the virtual one, with answers that are made up for each operation.
"""
import argparse
import json
import multiprocessing.connection
import os
import re
import signal
import struct
import sys

import jsonschema

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
sys.path.insert(0, os.path.join(ROOT, "tools"))
from described import Operation, inlined  # noqa: E402
from switch import Refused, Switch  # noqa: E402

HEADER = b"Content-Type: application/json\r\n\r\n"
NOT_ADMITTED = b"Status:403\r\n\r\n"
MARK = 77777  # stands where nobody is to look


class Wrong(Exception):
    """What the description says and the program does not, or the other way round."""


def same(what, found, said):
    if found != said:
        raise Wrong(f"{what}: {found!r:.600} where the description says {said!r:.600}")


class Proof:
    """Of one operation, before a switch. `data` is the program's, in which every key must stand."""

    def __init__(self, operation, switch, data):
        self.operation, self.switch, self.data = operation, switch, data
        self.base = {key: key.samples()[0] for key in operation.keys}
        self.outputs = [{} for _ in operation.calls]
        self.kinds = [{} for _ in operation.calls]  # a value of each output as the trace shows it
        self.inputs = set()                         # operands that are only sent
        self.outcomes, self.answers, self.requests = set(), set(), 0
        self.validator = jsonschema.Draft202012Validator(operation.schema)

    def prove(self):
        operation = self.operation
        closed(operation.schema)
        for body in operation.bodies:
            same("what a body must have", (body["type"], body["additionalProperties"]), ("object", False))
        same("without a session", self.send(*operation.request(self.base), session=None), (NOT_ADMITTED, []))
        if operation.calls:
            self.learn_outputs()
            self.vary_keys()
            self.vary_json()
            self.vary_outputs()
            self.vary_codes()
        else:
            same("what a placeholder must have", (operation.entry["deprecated"], operation.rule, operation.keys), (True, "none", []))
            self.check({}, self.send())
        self.send_besides()
        same("the result codes", self.outcomes, set(operation.messages))
        self.compare_extent()

    def send(self, query="", body="", session="token"):
        self.requests += 1
        return self.switch.ask(self.operation.method, self.operation.path, query, body, session)

    def tell(self, values, **how):
        self.check(values, self.send(*self.operation.request(values, **how)))

    def arrange(self, code=0, only=None):
        """The switch answers the outputs, and `code` to the call at index `only`, or to all."""
        for i, call in enumerate(self.operation.calls):
            outputs = [f"{name}={','.join(map(str, value)) if isinstance(value, list) else value}"
                       for name, value in self.outputs[i].items()]
            told_apart = [f"{name}={values[i]}" for name, values in self.operation.constants.items() if isinstance(values, list)]
            self.switch.tell("fault", call, *told_apart, f"code={code if only in (None, i) else 0}", *outputs)

    def learn_outputs(self):
        """That the calls are those that are said, and what they return."""
        self.arrange()
        calls = self.send(*self.operation.request(self.base))[1]
        same("the operations", [call.name for call in calls], self.operation.calls)
        same("operands that are reached", self.operation.operands_reached() - {name for call in calls for name in call.sent},
             set())
        for i, call in enumerate(calls):
            self.inputs |= set(call.sent) - set(call.returned)
            self.kinds[i] = call.returned
            for n, (name, value) in enumerate(call.returned.items()):
                self.outputs[i][name] = f"o{n}" if value[0] == "[" else [n + 2, n + 3] if value[-1] == ")" else n + 2
        self.arrange()

    def vary_keys(self):
        """Each value of each key reaches its operands, and only them; so does the default of a key that is not there."""
        self.tell({})
        for key in self.operation.keys:
            others = {one: value for one, value in self.base.items() if one is not key}
            self.tell(others)
            for value in key.samples():
                self.tell({**self.base, key: value})
            found = self.base if key.lookup == "loose" else others
            prefixed = self.operation.request(self.base, rename=lambda one: "x" + one.name if one is key else one.name)
            self.check(found, self.send(*prefixed))
            if key.place == "query":
                self.vary_escapes(key)

    def vary_escapes(self, key):
        decoded = key.lookup == "decoded"
        if key.kind in ("string", "word"):
            same(f"allowReserved of {key.name}", key.schema.get("allowReserved", False), not decoded)
        if key.kind == "string":
            same(f"pattern of {key.name}", key.schema.get("pattern"), None if decoded else "^[^&/]*$")
            escaped = self.operation.request({**self.base, key: "%2541"})
            self.check({**self.base, key: "A" if decoded else "%2541"}, self.send(*escaped))
        elif key.kind == "integer":
            escaped = self.operation.request({**self.base, key: "%37"})
            self.check({**self.base, key: 7 if decoded else 0}, self.send(*escaped))

    def vary_json(self):
        """The case of its keys does not matter; what is no JSON is refused, where it has to be some."""
        operation = self.operation
        if not operation.json_place:
            return
        self.tell(self.base, rename=lambda key: key.name if key.place == "query" else key.name.swapcase())
        rest = {key: value for key, value in self.base.items() if key.place == "query"}
        query, body = operation.request(rest)
        broken = (query.replace("{}", "{", 1), "") if operation.json_place == "json-query" else (query, "{")
        self.check(rest, self.send(*broken), refused=operation.needs_json)

    def send_besides(self):
        """Nothing that is not described matters: no text of the program that could be a key, whatever its value. (Of a text
        that is the end of another, the linker keeps only that one.)"""
        for key in self.operation.keys:
            same(f"{key.name} in the program", key.name.encode() + b"\0" in self.data, True)
        known = {key.name for key in self.operation.keys}
        texts = {text.decode() for text in re.findall(rb"(?=([A-Za-z]\w{1,40})\0)", self.data)}
        words = sorted(texts - known)
        marks = [MARK, str(MARK), True]
        if self.inputs - self.operation.operands_reached():  # what reaches those could be the word of a hidden key
            marks += ["enable", "protocol", "remark", "permit", "pps", "telnet", "tx", "broadcast", "shutdown"]
        step = 250 if self.operation.json_place == "json-query" else len(words)  # of a longer one the end is cut off
        for mark in marks:
            for i in range(0, len(words), step):
                self.tell(self.base, besides=[(word, mark) for word in words[i:i + step]])

    def vary_outputs(self):
        """Each member follows its own output and no other."""
        for i, kinds in enumerate(self.kinds):
            for n, (name, kind) in enumerate(kinds.items()):
                members = [schema for _, schema in self.operation.members if schema["x-source"].get("operand") == name]
                before = self.outputs[i][name]
                for value in output_samples(kind, members, n) + [63, 64, 100] * (name in self.operation.counted()):
                    self.outputs[i][name] = value
                    try:
                        self.arrange()
                    except Refused:  # the operand cannot be that
                        continue
                    self.tell(self.base)
                self.outputs[i][name] = before
        self.arrange()

    def vary_codes(self):
        for i in range(len(self.operation.calls)):
            for code in range(-29, 0):
                self.arrange(code, i)
                self.check(self.base, self.send(*self.operation.request(self.base)), code=code)
        self.arrange()

    def check(self, values, got, code=0, refused=None):
        """Compares the calls and the whole answer with what follows from the values, the outputs and OpEN's code."""
        output, calls = got
        operation = self.operation
        what = " ".join(f"{key.name}={value!r:.40}" for key, value in values.items()) or "no keys"
        if refused is None:
            refused = any(key.is_refused(values.get(key)) for key in operation.keys)
        if not operation.calls:
            outcome, situation = next(iter(operation.messages)), "failure"
        elif refused:
            outcome, situation = 10003, "refused"
        else:
            outcome = operation.outcome(code)
            situation = "failure" if outcome else "success"
        said = [] if refused else operation.calls
        same(f"{what}: the operations", [call.name for call in calls], said[:len(calls)] if outcome and calls else said)
        for i, call in enumerate(calls):
            same(f"{what}: {call.name}", call.sent, operation.sent(i, call, values, self.outputs))
        self.outcomes.add(outcome)
        text = operation.answer(outcome, situation, values, self.outputs, code)
        same(f"{what}: the answer", output, HEADER + text.encode())
        if text not in self.answers:
            self.answers.add(text)
            self.validator.validate(json.loads(text))

    def compare_extent(self):
        """The schema allows what has occurred, and no more."""
        seen = {}
        for text in self.answers:
            for path, _ in self.operation.members:
                value = json.loads(text)
                for step in path.split("."):
                    value = value.get(step, {})
                if value != {}:
                    seen.setdefault(path, []).append(value)
        for path, schema in self.operation.members:
            if "otherwise" in schema["x-source"] and schema["type"] != "boolean":
                same(f"the words of {path}", set(seen[path]), set(schema["enum"]))
            elif schema["type"] == "integer" and not schema["x-source"].get("count"):
                same(f"the numbers of {path}", (min(seen[path]), float(max(seen[path]))),
                     (schema["minimum"], float(schema["maximum"])))
            elif schema["type"] in ("string", "array"):
                limit = schema.get("maxLength", schema.get("maxItems"))
                same(f"the longest {path}", max(map(len, seen[path])), limit or max(map(len, seen[path])))


def output_samples(kind, schemas, n):
    """Values for an output, of the kind that the trace shows, at which the members made of it show all they can be."""
    if kind.startswith("["):
        longest = [schema.get("maxLength", 1000) for schema in schemas]
        return ["", f"p{n}", *("q" * (length + more) for length in longest for more in (0, 1))]
    if kind.endswith(")"):
        return [[], [n + 5], list(range(1, 4097)), [65535]]
    samples = [0, 1, 2]
    for schema in schemas:
        source = schema["x-source"]
        samples += [code for codes in source.get("words", {}).values() for code in codes]
        if "otherwise" in source:
            samples += [max(samples) + 1]
        elif "conversion" in source:
            samples += [int.from_bytes(bytes([192, 0, 2, 255]), sys.byteorder), (1 << 32) - 1]
        elif schema["minimum"] < 0:
            samples += [schema["maximum"], schema["maximum"] + 1]
        else:
            samples += [min(int(schema["maximum"]), (1 << 64) - 1), int(schema["maximum"]) + 1]
    return samples


def closed(schema):
    """Objects say all their members, and that there are no others."""
    for one in schema.get("oneOf", []):
        closed(one)
    if "properties" in schema:
        same("what an object must have", (schema["type"], schema["additionalProperties"], set(schema["required"])),
             ("object", False, set(schema["properties"])))
        for one in schema["properties"].values():
            closed(one)


def data_of(program):
    """The read-only data of the program."""
    with open(program, "rb") as file:
        image = file.read()
    start, = struct.unpack_from("<Q", image, 0x28)
    size, count, names = struct.unpack_from("<HHH", image, 0x3A)
    sections = [struct.unpack_from("<IIQQQQ", image, start + i * size) for i in range(count)]
    return b"".join(image[at:at + length] for name, _, _, _, at, length in sections
                    if image[sections[names][4] + name:].startswith(b".rodata"))


def prove_all(switch, operations, report):
    """Proves one after the other; `report` gets the name of each, what is wrong or None, and how many requests it took."""
    data = data_of(switch.program)
    for operation in operations:
        proof, wrong = Proof(operation, switch, data), None
        try:
            proof.prove()
        except (Wrong, jsonschema.ValidationError) as error:
            wrong = getattr(error, "message", str(error))
        except (AssertionError, LookupError, TypeError, ValueError, AttributeError, Refused) as error:
            wrong = f"the description makes no sense: {error!r}"
        switch.tell("clear")
        report((operation.name, wrong, proof.requests))


def operations_of(description):
    base, = [server["url"] for server in description["servers"]]
    return [Operation(base + path, method, entry)
            for path, methods in inlined(description, description["paths"]).items() for method, entry in methods.items()]


def set_scene(switch, scene):
    switch.tell("reset")
    switch.tell("hold")  # what counts seconds stands still
    for request in scene:
        switch.request(request["method"], request["target"], request["body"])


def prove_examples(switch, scene, operations, report):
    """Behind the scene, on a switch just started, every example is answered as it says."""
    set_scene(switch, scene)
    for operation in sorted(operations, key=lambda operation: operation.method != "GET"):
        if operation.method != "GET" and operation.calls:
            set_scene(switch, scene)
        query, body, said = operation.example()
        output, wrong = switch.ask(operation.method, operation.path, query, body)[0], None
        try:
            same("the example", json.loads(output.partition(b"\r\n\r\n")[2]), said)
            same("whether the example succeeds", said["resp"]["respCode"] == 0, bool(operation.calls))
        except (Wrong, ValueError) as error:
            wrong = f"{error} in {output!r:.300}"
        report((operation.name, wrong, 1))


def left_behind_reset(switch, scene, operations):
    """The reads, by name, that a reset does not bring back to what they answer at the start, whatever was written."""
    reads = [operation for operation in operations if operation.method == "GET" and operation.calls]

    def answers():
        switch.tell("reset")
        switch.tell("hold")
        return [switch.ask(operation.method, operation.path, *operation.example()[:2])[0] for operation in reads]

    at_start = answers()
    set_scene(switch, scene)
    for operation in operations:
        if operation.method in ("PUT", "POST") and operation.calls:
            switch.ask(operation.method, operation.path, *operation.example()[:2])
    return [read.name for read, before, behind in zip(reads, at_start, answers()) if before != behind]


def work(build, scene, operations, report):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # the switch ends as well
    with Switch(build) as switch:
        prove_all(switch, operations, report)
        prove_examples(switch, scene, operations, report)


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--first", action="store_true", help="stop at the first operation that is wrong")
    arguments.add_argument("build")
    arguments.add_argument("description", nargs="?", default=ROOT + "/api/openapi.json")
    arguments.add_argument("operation", nargs="*", help='only those that hold one of these texts, such as "GET /api/v2/switching/vlan/type" or /garp/')
    options = arguments.parse_args()
    with open(options.description, encoding="utf-8") as file:
        description = json.load(file)
    operations = [one for one in operations_of(description)
                  if not options.operation or any(text in one.name for text in options.operation)]
    workers = os.cpu_count() or 1
    processes, results = [], []
    for i in range(workers):
        result, report = multiprocessing.Pipe(duplex=False)
        processes.append(multiprocessing.Process(target=work, args=(options.build, description["x-scene"],
                                                                    operations[i::workers], report.send)))
        processes[-1].start()
        report.close()  # so that who has ended, in whatever way, is seen to have
        results.append(result)
    left, sent = {operation.name: 2 for operation in operations}, 0  # how often each has still to be found right
    while results:
        for result in multiprocessing.connection.wait(results):
            try:
                name, message, requests = result.recv()
            except EOFError:
                results.remove(result)
                continue
            sent += requests
            left[name] -= not message
            if message:
                print(f"{name}: {message}", flush=True)
                if options.first:
                    for process in processes:
                        process.terminate()
    for process in processes:
        process.join()
    with Switch(options.build) as switch:
        for name in left_behind_reset(switch, description["x-scene"], operations):
            left[name] += 1
            print(f"{name}: a reset of the virtual switch leaves something behind")
    right = list(left.values()).count(0)
    print(f"{right} of {len(operations)} operations are as described ({sent} requests)")
    sys.exit(right != len(operations))


if __name__ == "__main__":
    main()
