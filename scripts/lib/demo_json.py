#!/usr/bin/env python3
"""Small JSON helpers for scripts/demo: the emulator's control API over HTTP on loopback, and
short readable extracts of hubctl's --json answers (which arrive on standard input).

  demo_json.py call METHOD URL [BODY]     one HTTP request; prints the JSON answer
  demo_json.py field KEY...               stdin: an object; prints the member at that path
  demo_json.py devices                    stdin: hubctl --json devices; one line per device
  demo_json.py named-devices              stdin: the same; how many have their display name
  demo_json.py serial NAME                stdin: the same; the serial of the device called NAME
  demo_json.py value SERIAL OUTPUT        stdin: the same; the last value of that output
  demo_json.py changes SEQUENCE           stdin: the emulator's request record; the changes
                                          (PUT) after that sequence number, one per line
  demo_json.py last-sequence              stdin: the same; the newest sequence number (0: none)
  demo_json.py summary                    stdin: the same; requests counted by scheme, port,
                                          method and path (resource ids and keys shortened)
  demo_json.py event-message              stdin: the service's log; the last event stream
                                          message it logged, one changed resource per line
"""
import json
import re
import sys
import urllib.request

# "<marker> <file> <line> <pid> ": the start of every line the service logs.
LOG_LINE = re.compile(r"^(--|WW|EE|\*\*|\?\?) \S+\s+\d+ \d+ ")


def call(method, url, body=None):
    data = body.encode() if body is not None else (b"{}" if method != "GET" else None)
    request = urllib.request.Request(url, data=data, method=method,
                                     headers={"Content-Type": "application/json"})
    with urllib.request.urlopen(request, timeout=10) as answer:
        print(answer.read().decode())


def output_value(device, name):
    for point in device.get("dataPoints", []):
        if point.get("direction") == "output" and point.get("name", "").lower() == name.lower():
            return point.get("value", "") if point.get("hasValue") else ""
    return ""


def shortened(path):
    path = re.sub(r"[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}", "<id>", path)
    return re.sub(r"^/api/[0-9A-Za-z-]{20,}", "/api/<key>", path)


def event_message(log):
    """The events of the last logged stream message: its JSON spans the lines after the marker."""
    lines = log.splitlines()
    starts = [i for i, line in enumerate(lines) if "event stream message:" in line]
    if not starts:
        return ["(none logged)"]
    text = [lines[starts[-1]].split("event stream message:", 1)[1]]
    for line in lines[starts[-1] + 1:]:
        if LOG_LINE.match(line):
            break
        text.append(line)
    try:
        events = json.loads("\n".join(text))
    except ValueError:
        return [line.rstrip() for line in text if line.strip()]
    lines = []
    for event in events if isinstance(events, list) else [events]:
        for resource in event.get("data", []):
            # Only what changed: the members besides the resource's identification.
            changed = {k: v for k, v in resource.items() if k not in ("id", "id_v1", "owner", "type")}
            lines.append("%s %s %s %s: %s" % (
                event.get("creationtime", ""), event.get("type", "?"), resource.get("type", "?"),
                resource.get("id_v1", resource.get("id", "")), json.dumps(changed, separators=(",", ":"))))
    return lines


def main(argv):
    command = argv[1] if len(argv) > 1 else ""
    if command == "call":
        call(argv[2], argv[3], argv[4] if len(argv) > 4 else None)
        return 0
    if command == "event-message":
        print("\n".join(event_message(sys.stdin.read())))
        return 0
    try:
        document = json.load(sys.stdin)
    except ValueError:  # nothing, or no JSON: the program asked is not there (yet)
        return 1
    if command == "field":
        value = document
        for key in argv[2:]:
            value = value.get(key, "") if isinstance(value, dict) else ""
        print(value if isinstance(value, str) else json.dumps(value))
    elif command == "devices":
        for device in document:
            attributes = device.get("attributes", {})
            print("  %s  %-28s %-8s switch %-2s brightness %s" % (
                device["id"], attributes.get("displayName", "?"), attributes.get("hueModelId", ""),
                output_value(device, "Switch status") or "-",
                output_value(device, "Brightness status") or "-"))
    elif command == "named-devices":
        print(sum(1 for d in document if d.get("attributes", {}).get("displayName")))
    elif command == "serial":
        print(next((d["id"] for d in document
                    if d.get("attributes", {}).get("displayName") == argv[2]), ""))
    elif command == "value":
        print(next((output_value(d, argv[3]) for d in document if d["id"] == argv[2]), ""))
    elif command == "changes":
        after = int(argv[2])
        for request in document:
            if int(request["sequence"]) > after and request["method"] == "PUT":
                body = json.dumps(json.loads(request["body"]), separators=(",", ":"))
                print("  %s %s %s -> %d" % (request["method"], shortened(request["path"]), body,
                                            request["status"]))
    elif command == "summary":
        counts = {}
        for request in document:
            key = "%-5s :%d %-6s %s" % (request["scheme"], request["port"], request["method"],
                                       shortened(request["path"]))
            counts[key] = counts.get(key, 0) + 1
        for key, count in counts.items():
            print("%3d x %s" % (count, key))
    elif command == "last-sequence":
        print(max((int(r["sequence"]) for r in document), default=0))
    else:
        sys.stderr.write(__doc__)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
