#!/usr/bin/python3
"""describe.py - makes openapi.json from what the recorder saw (facts.py) and the texts in words/, scene.txt, info.md.

    describe.py BUILD            makes it, and fails unless the openapi.json that is there is the same
    describe.py BUILD --write    writes it, and keeps the answers of the examples
    describe.py BUILD --play     writes it, and takes the answers from the program and the virtual switch in BUILD

BUILD is a directory in which everything is built. describe_keys.py and describe_answers.py describe an operation's request
and answers.
"""
import json
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../tools"))
from arguments import PROGRAM, build_with, parser  # noqa: E402
from describe_answers import describe_answer, resp_schema, summary  # noqa: E402
from describe_keys import describe_request  # noqa: E402
from description import (  # noqa: E402
    DESCRIPTION, SceneFailed, example_answer, example_request, load, operations_of, set_scene)
from facts import Unclear, record  # noqa: E402
from meanings import BASE, directory, identity, meanings, read_meanings  # noqa: E402
from switch import Switch  # noqa: E402
from words import Words, Wrong  # noqa: E402

SUCCESS = {"resp": {"respCode": 0, "respMsg": "Success", "status": "success"}}


def describe_endpoint(endpoint, endpoints, words, components):
    line = words.line(identity(endpoint))
    operation = {"operationId": f"{endpoint['method'].lower()}-{directory(endpoint).replace('/', '-')}-{endpoint['name']}",
                 "tags": [directory(endpoint)], "summary": summary(line)}
    if ". " in line:
        operation["description"] = line
    if not endpoint["calls"]:
        operation["deprecated"] = True
    describe_request(endpoint, operation, endpoints, words)
    if "x-query-string" in operation:
        target = f"$base/{directory(endpoint)}/{endpoint['name']}?{operation['x-query-string']['example']}"
        operation["description"] = f"{line} `curl -g -X {endpoint['method']} -H \"$session\" '{target}'`"
    operation["responses"] = {"200": describe_answer(endpoint, words, components),
                              "403": {"$ref": "#/components/responses/Refused"}}
    operation["x-operations"] = endpoint["calls"]
    for name in ("constants", "text_sizes"):
        if endpoint[name]:
            operation["x-" + name.replace("_", "-")] = endpoint[name]
    operation["x-open-codes"] = endpoint["open_codes"]
    operation["x-line-end"] = endpoint["line_ends"]
    return operation


def read_scene():
    for line in open(os.path.join(HERE, "scene.txt"), encoding="utf-8"):
        if not line.startswith("#"):
            method, target, body = re.fullmatch(r"(\S+) (\S+) ?(.*)\n", line).groups()
            yield {"method": method, "target": f"{BASE}/{target}", "body": body}


def describe(endpoints, words):
    paths, schemas = {}, {}
    for endpoint in endpoints:
        methods = paths.setdefault(f"/{directory(endpoint)}/{endpoint['name']}", {})
        methods[endpoint["method"].lower()] = describe_endpoint(endpoint, endpoints, words, schemas)
    words.check_all_used()
    schemas["SuccessResp"] = resp_schema([0], "Success")
    tags = dict.fromkeys(directory(endpoint) for endpoint in endpoints)
    return {
        "openapi": "3.1.0",
        "info": {"title": "Switching", "version": "2",
                 "description": open(os.path.join(HERE, "info.md"), encoding="utf-8").read()},
        "servers": [{"url": BASE, "description": "At the switch's own web server"}],
        "security": [{"session": []}],
        "tags": [{"name": tag, "description": words.heads[tag.replace("/", "-")]} for tag in tags],
        "paths": paths,
        "components": {
            "securitySchemes": {"session": {"type": "apiKey", "in": "header", "name": "Session",
                                            "description": "The token that the web login hands out."}},
            "responses": {"Refused": {"description": "No good session, or a role that may not do this. The body is empty."}},
            "schemas": dict(sorted(schemas.items()))},
        "x-scene": list(read_scene())}


# Examples

def play(description, build):
    """
    Takes the answers of the examples from a switch in the state of the scene. Reads come first, as they change nothing.
    A write that fails after other writes is sent again in a new scene. (The proof sets the scene before every write.)
    """
    failures = []
    with Switch(build) as switch:
        set_scene(switch, description["x-scene"])
        for path, method, operation in sorted(operations_of(description), key=lambda row: row[1] != "GET"):
            request = (method, *example_request(path, operation))
            answer = json.loads(switch.request(*request))
            if method != "GET" and operation["x-operations"] and answer != SUCCESS:
                set_scene(switch, description["x-scene"])
                answer = json.loads(switch.request(*request))
            if answer["resp"]["respCode"] != 0 and operation["x-operations"]:
                failures.append(f"{request}: {answer['resp']}")
            example_answer(operation)["example"] = answer
    if failures:
        raise Wrong("Examples fail:\n" + "\n".join(failures))


def keep_answers(description, old):
    """Keeps the answer of every example whose request has not changed."""
    answers = {(method, example_request(path, operation)): example_answer(operation)
               for path, method, operation in operations_of(old)}
    for path, method, operation in operations_of(description):
        content = answers.get((method, example_request(path, operation)), {})
        if "example" not in content:
            raise Wrong(f"The example of {method} {path} has no answer yet: run describe.py BUILD --play")
        example_answer(operation)["example"] = content["example"]


def pretty(value, indent="", before=0):
    """JSON; a value that fits into the rest of its line stands there. `before`: characters already in the line."""
    line = json.dumps(value, ensure_ascii=False)
    if len(indent) + before + len(line) <= 119 or not value or not isinstance(value, (dict, list)):
        return line
    inner = indent + "  "
    if isinstance(value, list):
        rows = [pretty(item, inner) for item in value]
    else:
        rows = [f"{json.dumps(key)}: {pretty(item, inner, len(key) + 4)}" for key, item in value.items()]
    begin, end = "[]" if isinstance(value, list) else "{}"
    return begin + "\n" + ",\n".join(inner + row for row in rows) + "\n" + indent + end


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with("api_recorder", *PROGRAM))
    mode = arguments.add_mutually_exclusive_group()
    for name in "--write", "--play":
        mode.add_argument(name, dest="mode", action="store_const", const=name)
    arguments.set_defaults(mode="--check")
    options = arguments.parse_args()
    build, mode = options.build, options.mode
    meanings.update(read_meanings(build))
    try:
        description = describe(record(os.path.join(build, "api_recorder")), Words(os.path.join(HERE, "words")))
        if mode == "--play":
            play(description, build)
        else:
            keep_answers(description, load())
    except (Unclear, Wrong, SceneFailed) as wrong:
        sys.exit(f"describe.py: {wrong}")
    text = pretty(description) + "\n"
    if mode != "--check":
        open(DESCRIPTION, "w", encoding="utf-8").write(text)
    elif text != open(DESCRIPTION, encoding="utf-8").read():
        sys.exit("api/openapi.json does not fit the handlers and the texts: run api/describe.py BUILD --write, and read the "
                 "difference.")


if __name__ == "__main__":
    main()
