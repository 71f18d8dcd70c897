#!/usr/bin/python3
"""Proves that api/openapi.json describes the program exactly.

The proof knows nothing but the description. That says which calls a request makes to the switch, and how the answer
follows from what the switch returns. So the proof predicts each call and each answer as a whole, and compares them to
the byte. The switch is the virtual one; its answers are simulated for each operation (vswitch fault).
"""
import json
import multiprocessing.connection
import os
import re
import signal
import struct
import sys

try:
    import jsonschema
except ImportError:
    jsonschema = None

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from described import Wrong, described_operations, same  # noqa: E402
from description import DESCRIPTION, SceneFailed, load  # noqa: E402
from examples import left_behind_reset, prove_examples, wrong_meanings  # noqa: E402
from arguments import PROGRAM, build_with, parser  # noqa: E402
from switch import Refused, Switch  # noqa: E402

HEADER = b"Content-Type: application/json\r\n\r\n"
NOT_ADMITTED = b"Status:403\r\n\r\n"
MARK = 77777  # the value of keys that the program must not read


class Proof:
    """Proves one operation. `data` is the program's read-only data, in which every key must occur."""

    def __init__(self, operation, switch, data):
        self.operation, self.switch, self.data = operation, switch, data
        self.base = {key: key.samples()[0] for key in operation.keys}
        self.outputs = [{} for _ in operation.calls]
        self.kinds = [{} for _ in operation.calls]  # of each call: {output: a value as the trace shows it}
        self.inputs = set()                         # operands that are sent and not returned
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
            self.vary_names()
        else:
            same("what a placeholder must have", (operation.entry["deprecated"], operation.rule, operation.keys),
                 (True, "none", []))
            self.check({}, self.send())
        self.send_undescribed_keys()
        same("the result codes", self.outcomes, set(operation.messages))
        self.compare_extent()

    def send(self, query="", body="", session="token"):
        self.requests += 1
        return self.switch.ask(self.operation.method, self.operation.path, query, body, session)

    def try_values(self, values, **how):
        """Sends the request with these values, and checks what it does."""
        self.check(values, self.send(*self.operation.request(values, **how)))

    def arrange(self, code=0, only=None):
        """Makes the switch return the outputs, and `code` from the call at index `only` (None: from all calls)."""
        for i, call in enumerate(self.operation.calls):
            outputs = [f"{name}={','.join(map(str, value)) if isinstance(value, list) else value}"
                       for name, value in self.outputs[i].items()]
            constants = self.operation.constants.items()
            condition = [f"{name}={value[i]}" for name, value in constants if isinstance(value, list)]
            self.switch.command("fault", call, *condition, f"code={code if only in (None, i) else 0}", *outputs)

    def learn_outputs(self):
        """Checks that the calls are those described, and finds out what they return."""
        self.arrange()
        calls = self.send(*self.operation.request(self.base))[1]
        same("the operations", [call.name for call in calls], self.operation.calls)
        sent = {name for call in calls for name in call.sent}
        same("operands that are reached", self.operation.operands_reached() - sent, set())
        for i, call in enumerate(calls):
            self.inputs |= set(call.sent) - set(call.returned)
            self.kinds[i] = call.returned
            for n, (name, value) in enumerate(call.returned.items()):
                self.outputs[i][name] = f"o{n}" if value[0] == "[" else [n + 2, n + 3] if value[-1] == ")" else n + 2
        self.arrange()

    def vary_keys(self):
        """Each value of each key reaches its operands, and only them; so does the default of a missing key."""
        self.try_values({})
        for key in self.operation.keys:
            others = {one: value for one, value in self.base.items() if one is not key}
            self.try_values(others)
            for value in key.samples():
                self.try_values({**self.base, key: value})
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
        """The case of JSON keys does not matter; text that is not JSON is refused where JSON is required."""
        operation = self.operation
        if not operation.json_place:
            return
        self.try_values(self.base, rename=lambda key: key.name if key.place == "query" else key.name.swapcase())
        rest = {key: value for key, value in self.base.items() if key.place == "query"}
        query, body = operation.request(rest)
        broken = (query.replace("{}", "{", 1), "") if operation.json_place == "json-query" else (query, "{")
        self.check(rest, self.send(*broken), refused=operation.needs_json)

    def send_undescribed_keys(self):
        """No key that is not described changes anything: tries every text of the program that could be a key. (The
        linker stores a text that is the end of another text inside that one.)"""
        for key in self.operation.keys:
            same(f"{key.name} in the program", key.name.encode() + b"\0" in self.data, True)
        known = {key.name for key in self.operation.keys}
        texts = {text.decode() for text in re.findall(rb"(?=([A-Za-z]\w{1,40})\0)", self.data)}
        words = sorted(texts - known)
        marks = [MARK, str(MARK), True]
        if self.inputs - self.operation.operands_reached():  # an undescribed key with words could reach those
            marks += ["enable", "protocol", "remark", "permit", "pps", "telnet", "tx", "broadcast", "shutdown"]
        step = 250 if self.operation.json_place == "json-query" else len(words)  # a longer query is cut off
        for mark in marks:
            for i in range(0, len(words), step):
                self.try_values(self.base, extra=[(word, mark) for word in words[i:i + step]])

    def vary_outputs(self):
        """Each member follows its output and no other."""
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
                    self.try_values(self.base)
                self.outputs[i][name] = before
        self.arrange()

    def vary_codes(self):
        for i in range(len(self.operation.calls)):
            for code in range(-29, 0):
                self.arrange(code, i)
                self.check(self.base, self.send(*self.operation.request(self.base)), code=code)
        self.arrange()

    def vary_names(self):
        """The names of numbers are those that the virtual switch knows: in a fault, a name stands for its number."""
        for key in self.operation.keys:
            for number, name in key.schema.get("x-names", {}).items():
                condition = f"{key.schema['x-operand'][0]}=={name}"
                self.switch.command("fault", self.operation.calls[0], condition, "code=-7")
                self.try_values({**self.base, key: int(number) + 1})
                values = {**self.base, key: int(number)}
                self.check(values, self.send(*self.operation.request(values)), code=-7)
                self.switch.command("clear")
                self.arrange()
        for _, schema in self.operation.members:
            for number, name in schema.get("x-names", {}).items():
                before, self.outputs[0] = self.outputs[0], {**self.outputs[0], schema["x-source"]["operand"]: name}
                self.arrange()
                self.outputs[0] = {**before, schema["x-source"]["operand"]: int(number)}
                self.try_values(self.base)
                self.outputs[0] = before
        self.arrange()

    def check(self, values, got, code=0, refused=None):
        """Compares the calls and the whole answer with the prediction from the values, the outputs and OpEN's code."""
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
        predicted = [] if refused else operation.calls
        if outcome and calls:  # a failure can end the calls early
            predicted = predicted[:len(calls)]
        same(f"{what}: the operations", [call.name for call in calls], predicted)
        for i, call in enumerate(calls):
            same(f"{what}: {call.name}", call.sent, operation.sent(i, call, values, self.outputs))
        self.outcomes.add(outcome)
        text = operation.answer(outcome, situation, values, self.outputs, code)
        same(f"{what}: the answer", output, HEADER + text.encode())
        if text not in self.answers:
            self.answers.add(text)
            self.validator.validate(json.loads(text))

    def compare_extent(self):
        """The schema allows the values that have occurred, and no others."""
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
    """Values for an output that bring the members made from it (their schemas) to all their values and limits. `kind`
    is a value as the trace shows it."""
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
    """Checks that every schema has a type, and that of an object lists all members and forbids others."""
    same("whether a schema has a type", "type" in schema or "oneOf" in schema, True)
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
    """Proves the operations. `report` gets (name, what is wrong or None, number of requests) of each."""
    data = data_of(switch.program)
    for operation in operations:
        proof, wrong = Proof(operation, switch, data), None
        try:
            proof.prove()
        except (Wrong, jsonschema.ValidationError) as error:
            wrong = getattr(error, "message", str(error))
        except (AssertionError, LookupError, TypeError, ValueError, AttributeError, Refused) as error:
            wrong = f"the description contradicts itself or the switch: {error!r}"
        switch.command("clear")
        report((operation.name, wrong, proof.requests))


def work(build, workers, scene, operations, report):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # ends the switch as well
    with Switch(build, workers=workers) as switch:
        prove_all(switch, operations, report)
        try:
            prove_examples(switch, scene, operations, report)
        except SceneFailed as error:
            sys.exit(f"proof.py: {error}")


def require_jsonschema():
    if not jsonschema:
        sys.exit("Debian's package python3-jsonschema is missing: tools/install.sh python3-jsonschema")


def main():
    arguments = parser(__doc__)
    arguments.add_argument("--first", action="store_true", help="stop at the first operation that is wrong")
    arguments.add_argument("--resident", action="store_true", help="send all requests to one worker")
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("description", nargs="?", default=DESCRIPTION)
    arguments.add_argument("operation", nargs="*",
                           help='prove only those whose name ("GET /api/v2/switching/vlan/type") contains one of these')
    options = arguments.parse_args()
    require_jsonschema()
    description = load(options.description)
    operations = [one for one in described_operations(description)
                  if not options.operation or any(text in one.name for text in options.operation)]
    workers = os.cpu_count() or 1
    processes, results = [], []
    for i in range(workers):
        result, report = multiprocessing.Pipe(duplex=False)
        args = options.build, int(options.resident), description["x-scene"], operations[i::workers], report.send
        processes.append(multiprocessing.Process(target=work, args=args))
        processes[-1].start()
        report.close()  # then the pipe ends when the process ends, however it does
        results.append(result)
    left, sent = {operation.name: 2 for operation in operations}, 0  # successes that each needs: proof, example
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
    with Switch(options.build, workers=int(options.resident)) as switch:
        for name in left_behind_reset(switch, description["x-scene"], operations):
            left[name] += 1
            print(f"{name}: a reset of the virtual switch does not bring back its first answer")
    for name, message in wrong_meanings(options.build, int(options.resident), description["x-scene"], operations):
        left[name] += 1
        print(f"{name}: {message}")
    right = list(left.values()).count(0)
    print(f"{right} of {len(operations)} operations are as described ({sent} requests)")
    sys.exit(right != len(operations))


if __name__ == "__main__":
    main()
