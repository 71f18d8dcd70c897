"""description.py - reads api/openapi.json: its operations, their example requests, and the scene for the examples."""
import json
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../client/python"))
from switching.description import Operation  # noqa: E402

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
DESCRIPTION = os.path.join(ROOT, "api/openapi.json")


class SceneFailed(Exception):
    """The switch refuses a request of the scene."""


def load(path=DESCRIPTION):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def operations_of(description):
    """(full path, METHOD, operation) of every operation."""
    base = description["servers"][0]["url"]
    for path, methods in description["paths"].items():
        for method, operation in methods.items():
            yield base + path, method.upper(), operation


def example_query(operation, json_text=None):
    """The raw query string of the example: `json_text` if there is one, then the query keys in their order."""
    pieces = [json.dumps(json_text, separators=(",", ":"))] if json_text else []
    pieces += [f"{parameter['name']}={parameter['example']}" for parameter in operation.get("parameters", [])]
    return "&".join(pieces)


def example_request(path, operation):
    """The target (path and query) and the body of the example, its keys placed by the Python client."""
    values = {parameter["name"]: parameter["example"] for parameter in operation.get("parameters", [])}
    for media in operation.get("requestBody", {"content": {}})["content"].values():
        values.update(media["example"])
    if "x-query-string" in operation:
        values.update(json.JSONDecoder().raw_decode(operation["x-query-string"]["example"])[0])
    return Operation("", path, operation).request(values)


def example_answer(operation):
    """The content of status 200, whose member "example" is the answer to the example."""
    return operation["responses"]["200"]["content"]["application/json"]


def set_scene(switch, scene):
    """Resets the switch, stops its clock, and sends the requests that prepare it for the examples."""
    switch.command("reset")
    switch.command("hold")
    for request in scene:
        answer = switch.request(request["method"], request["target"], request["body"])
        if json.loads(answer)["resp"]["respCode"] != 0:
            raise SceneFailed(f"The scene fails at {request}: {answer.decode()}")
