#!/usr/bin/env python3
"""A scripted model server for running the real agent CLIs offline.

Serves the Anthropic Messages API (for Claude Code), the OpenAI Responses API (for Codex) and
OpenAI Chat Completions (for Qwen Code) on 127.0.0.1, all streaming. The script lives in the
user's prompt, so one server serves every scenario without state:

  "RUN: <command>"  the first answer calls the agent's shell tool with <command>; once the
                    conversation holds the tool's result, the answer is the text
                    "DONE: <first line of the result>".
  "RUN UNSANDBOXED: <command>"  the same, but Codex's call asks to leave its sandbox, so that
                    Codex asks the user first.
  "... THEN WAIT <n>"  the answer after the tool's result comes <n> seconds late (at most 10),
                    which keeps the turn open after the tool ran.
  "SPAWN: <a> | <b>"  (Claude Code) starts one subagent per command, all in one answer, each
                    told "RUN: <command>"; once their results are in, a text answer.
  anything else     a short text answer.

Every request is appended to the record file as one JSON line ({"t", "path", "body"}), so a
test can check what reached the model. The server stops by itself after --lifetime seconds.
"""

import argparse
import json
import os
import re
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

MAX_BODY = 16 << 20
RUN = re.compile(r"RUN( UNSANDBOXED)?: (.+?)(?: THEN WAIT (\d+))?$", re.M)
SPAWN = re.compile(r"SPAWN: (.+)$", re.M)


def text_of(content):
    """The plain text of a message's content (a string or a list of blocks)."""
    if isinstance(content, str):
        return content
    parts = []
    for block in content or []:
        if isinstance(block, dict):
            if isinstance(block.get("text"), str):
                parts.append(block["text"])
            elif "content" in block:
                parts.append(text_of(block["content"]))
            elif isinstance(block.get("output"), str):
                parts.append(block["output"])
    return "\n".join(parts)


def plan(prompt, result):
    """What to answer: ("tool", command), ("unsandboxed", command) or ("text", words)."""
    match = RUN.search(prompt or "")
    if not match:
        return ("text", "Nothing to do.")
    if result is None:
        return ("unsandboxed" if match.group(1) else "tool", match.group(2).strip())
    if match.group(3):
        time.sleep(min(int(match.group(3)), 10))
    first = next((line for line in result.splitlines() if line.strip()), "(no output)")
    return ("text", "DONE: " + first.strip()[:200])


# ---- Anthropic Messages -------------------------------------------------------------------


def anthropic_blocks(body, serial):
    """The answer's content blocks, without their streamed form."""
    tools = {t.get("name") for t in body.get("tools") or [] if isinstance(t, dict)}
    # Only conversations offering the shell tool are scripted; side requests such as title
    # generation get plain text.
    if "Bash" not in tools:
        return [{"type": "text", "text": "Nothing to do."}]
    prompt, result, spawn, spawned = None, None, None, False
    for m in body.get("messages") or []:
        if m.get("role") != "user":
            continue
        content = m.get("content")
        blocks = content if isinstance(content, list) else [{"type": "text", "text": content}]
        for b in blocks:
            if not isinstance(b, dict):
                continue
            text = b.get("text") or ""
            if b.get("type") == "tool_result":
                result = text_of(b.get("content")) or ("error" if b.get("is_error") else "")
                spawned = spawn is not None
            elif b.get("type") == "text" and SPAWN.search(text):
                spawn, spawned = SPAWN.search(text).group(1), False
            elif b.get("type") == "text" and RUN.search(text):
                prompt, result = text, None
    if spawn is not None and "Agent" in tools:
        if spawned:
            return [{"type": "text", "text": "DONE: the agents finished"}]
        return [{"type": "tool_use", "id": f"toolu_fake{serial}x{i}", "name": "Agent",
                 "input": {"description": f"Helper {i + 1}", "prompt": f"RUN: {command.strip()}",
                           "subagent_type": "general-purpose"}}
                for i, command in enumerate(spawn.split("|"))]
    kind, value = plan(prompt, result)
    if kind == "text":
        return [{"type": "text", "text": value}]
    return [{"type": "tool_use", "id": f"toolu_fake{serial}", "name": "Bash",
             "input": {"command": value, "description": "Run the requested command"}}]


def anthropic_events(body, serial):
    blocks = anthropic_blocks(body, serial)
    usage = {"input_tokens": 12, "output_tokens": 1, "cache_creation_input_tokens": 0,
             "cache_read_input_tokens": 0}
    yield "message_start", {"type": "message_start", "message": {
        "id": f"msg_fake{serial}", "type": "message", "role": "assistant",
        "model": body.get("model") or "claude-sonnet-4-5", "content": [], "stop_reason": None,
        "stop_sequence": None, "usage": usage}}
    for index, block in enumerate(blocks):
        if block["type"] == "tool_use":
            start = dict(block, input={})
            delta = {"type": "input_json_delta", "partial_json": json.dumps(block["input"])}
        else:
            start = {"type": "text", "text": ""}
            delta = {"type": "text_delta", "text": block["text"]}
        yield "content_block_start", {"type": "content_block_start", "index": index,
                                      "content_block": start}
        yield "content_block_delta", {"type": "content_block_delta", "index": index,
                                      "delta": delta}
        yield "content_block_stop", {"type": "content_block_stop", "index": index}
    stop = "tool_use" if blocks[-1]["type"] == "tool_use" else "end_turn"
    yield "message_delta", {"type": "message_delta",
                            "delta": {"stop_reason": stop, "stop_sequence": None},
                            "usage": {"output_tokens": 9}}
    yield "message_stop", {"type": "message_stop"}


def anthropic_message(body, serial):
    """The same answer, not streamed."""
    blocks = anthropic_blocks(body, serial)
    return {"id": f"msg_fake{serial}", "type": "message", "role": "assistant",
            "model": body.get("model") or "claude-sonnet-4-5", "content": blocks,
            "stop_reason": "tool_use" if blocks[-1]["type"] == "tool_use" else "end_turn",
            "stop_sequence": None, "usage": {"input_tokens": 12, "output_tokens": 9}}


# ---- OpenAI Responses ---------------------------------------------------------------------


def responses_plan(body):
    prompt, result = None, None
    items = body.get("input")
    if isinstance(items, str):
        items = [{"type": "message", "role": "user", "content": items}]
    for item in items or []:
        if not isinstance(item, dict):
            continue
        if item.get("type") == "function_call_output":
            out = item.get("output")
            result = out if isinstance(out, str) else text_of(out) if isinstance(out, list) else \
                json.dumps(out)
        elif item.get("role") == "user":
            text = text_of(item.get("content"))
            if RUN.search(text):
                prompt, result = text, None
    return plan(prompt, result)


def shell_call(body, command, unsandboxed, serial):
    """A call of whichever shell tool the agent offers."""
    names = {t.get("name") or t.get("type") for t in body.get("tools") or [] if isinstance(t, dict)}
    if "exec_command" in names:
        name, args = "exec_command", {"cmd": command}
        if unsandboxed:
            args.update(sandbox_permissions="require_escalated",
                        justification="Run the requested command")
    else:
        name, args = "shell", {"command": ["bash", "-lc", command]}
    return {"type": "function_call", "id": f"fc_fake{serial}", "call_id": f"call_fake{serial}",
            "name": name, "arguments": json.dumps(args), "status": "completed"}


def responses_events(body, serial):
    kind, value = responses_plan(body)
    rid = f"resp_fake{serial}"
    base = {"id": rid, "object": "response", "created_at": int(time.time()),
            "model": body.get("model") or "gpt-5", "status": "in_progress", "output": []}
    yield "response.created", {"type": "response.created", "response": base}
    if kind != "text":
        item = shell_call(body, value, kind == "unsandboxed", serial)
    else:
        item = {"type": "message", "id": f"msg_fake{serial}", "role": "assistant",
                "status": "completed", "content": [{"type": "output_text", "text": value,
                                                    "annotations": []}]}
        yield "response.output_item.added", {"type": "response.output_item.added",
                                             "output_index": 0,
                                             "item": dict(item, content=[], status="in_progress")}
        yield "response.output_text.delta", {"type": "response.output_text.delta",
                                             "item_id": item["id"], "output_index": 0,
                                             "content_index": 0, "delta": value}
    yield "response.output_item.done", {"type": "response.output_item.done", "output_index": 0,
                                        "item": item}
    done = dict(base, status="completed", output=[item],
                usage={"input_tokens": 12, "input_tokens_details": {"cached_tokens": 0},
                       "output_tokens": 9, "output_tokens_details": {"reasoning_tokens": 0},
                       "total_tokens": 21})
    yield "response.completed", {"type": "response.completed", "response": done}


# ---- OpenAI Chat Completions --------------------------------------------------------------

SHELL_TOOLS = ("run_shell_command", "bash", "shell")


def chat_plan(body):
    prompt, result = None, None
    for m in body.get("messages") or []:
        if not isinstance(m, dict):
            continue
        if m.get("role") == "tool":
            result = text_of(m.get("content")) or "(no output)"
        elif m.get("role") == "user" and RUN.search(text_of(m.get("content"))):
            prompt, result = text_of(m.get("content")), None
    return plan(prompt, result)


def chat_tool_call(body, command):
    """A call of the shell tool the agent offers, with the arguments its schema requires."""
    offered = {}
    for t in body.get("tools") or []:
        function = t.get("function") if isinstance(t, dict) else None
        if isinstance(function, dict) and function.get("name") in SHELL_TOOLS:
            offered[function["name"]] = (function.get("parameters") or {}).get("properties") or {}
    name = next((n for n in SHELL_TOOLS if n in offered), None)
    if name is None:
        return None
    args = {"command": command}
    if "description" in offered[name]:
        args["description"] = "Run the requested command"
    if "is_background" in offered[name]:
        args["is_background"] = False
    return name, args


def chat_events(body, serial):
    """Chat completion chunks: a shell tool call when the script asks for one, else text."""
    kind, value = chat_plan(body)
    call = chat_tool_call(body, value) if kind != "text" else None
    base = {"id": f"chatcmpl-fake{serial}", "object": "chat.completion.chunk",
            "created": int(time.time()), "model": body.get("model") or "fake-model"}

    def chunk(delta, finish=None):
        return dict(base, choices=[{"index": 0, "delta": delta, "finish_reason": finish}])

    yield chunk({"role": "assistant", "content": ""})
    if call:
        name, args = call
        yield chunk({"tool_calls": [{"index": 0, "id": f"call_fake{serial}", "type": "function",
                                     "function": {"name": name, "arguments": ""}}]})
        yield chunk({"tool_calls": [{"index": 0, "function": {"arguments": json.dumps(args)}}]})
        yield chunk({}, "tool_calls")
    else:
        yield chunk({"content": value if kind == "text" else "Nothing to do."})
        yield chunk({}, "stop")
    yield dict(base, choices=[], usage={"prompt_tokens": 1200, "completion_tokens": 9,
                                        "total_tokens": 1209})


def chat_message(body, serial):
    """The same answer, not streamed."""
    message, finish = {"role": "assistant", "content": None}, "stop"
    for c in chat_events(body, serial):
        for choice in c["choices"]:
            delta = choice["delta"]
            if delta.get("content"):
                message["content"] = (message["content"] or "") + delta["content"]
            for call in delta.get("tool_calls") or []:
                if "id" in call:
                    message["tool_calls"] = [call]
                else:
                    message["tool_calls"][0]["function"]["arguments"] += \
                        call["function"]["arguments"]
            finish = choice["finish_reason"] or finish
    return {"id": f"chatcmpl-fake{serial}", "object": "chat.completion",
            "created": int(time.time()), "model": body.get("model") or "fake-model",
            "choices": [{"index": 0, "message": message, "finish_reason": finish}],
            "usage": {"prompt_tokens": 1200, "completion_tokens": 9, "total_tokens": 1209}}


# ---- HTTP ---------------------------------------------------------------------------------


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "fake-models"

    def log_message(self, *args):
        pass

    def record(self, body):
        line = json.dumps({"t": time.time(), "path": self.path, "method": self.command,
                           "body": body})
        with self.server.lock:
            self.server.serial += 1
            with open(self.server.record_path, "a", encoding="utf-8") as f:
                f.write(line + "\n")
            return self.server.serial

    def send_json(self, status, value):
        data = json.dumps(value).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def send_stream(self, events):
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-cache")
        self.send_header("Connection", "close")
        self.end_headers()
        for name, data in events:
            line = f"event: {name}\n" if name else ""
            self.wfile.write(f"{line}data: {json.dumps(data)}\n\n".encode())
            self.wfile.flush()
        if self.path.split("?")[0].endswith("/chat/completions"):
            self.wfile.write(b"data: [DONE]\n\n")
        self.close_connection = True

    def do_GET(self):
        self.record(None)
        if self.path.rstrip("/").endswith("/models"):
            self.send_json(200, {"object": "list", "data": [], "models": []})
        else:
            self.send_json(404, {"error": {"type": "not_found", "message": self.path}})

    def do_HEAD(self):
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_POST(self):
        length = int(self.headers.get("Content-Length") or 0)
        if length < 0 or length > MAX_BODY:
            self.send_json(413, {"error": {"message": "too large"}})
            self.close_connection = True
            return
        raw = self.rfile.read(length) if length else b""
        if self.headers.get("Content-Encoding", "").lower() == "zstd":
            self.send_json(415, {"error": {"message": "compressed bodies are not supported"}})
            return
        try:
            body = json.loads(raw or b"{}")
        except ValueError:
            body = {"_raw": raw[:2000].decode("utf-8", "replace")}
        serial = self.record(body)
        path = self.path.split("?")[0]
        if path.endswith("/messages/count_tokens"):
            self.send_json(200, {"input_tokens": 12})
        elif path.endswith("/messages"):
            if body.get("stream"):
                self.send_stream(anthropic_events(body, serial))
            else:
                self.send_json(200, anthropic_message(body, serial))
        elif path.endswith("/responses"):
            self.send_stream(responses_events(body, serial))
        elif path.endswith("/chat/completions"):
            if body.get("stream"):
                self.send_stream((None, c) for c in chat_events(body, serial))
            else:
                self.send_json(200, chat_message(body, serial))
        else:
            self.send_json(404, {"error": {"type": "not_found", "message": path}})


class Server(ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 32

    def handle_error(self, request, client_address):
        # An agent closed while it was being answered is no fault of the server.
        if not isinstance(sys.exc_info()[1], (BrokenPipeError, ConnectionResetError)):
            super().handle_error(request, client_address)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--record", required=True, help="file the requests are appended to")
    parser.add_argument("--port-file", required=True, help="the chosen port is written here")
    parser.add_argument("--lifetime", type=float, default=600, help="seconds before stopping")
    args = parser.parse_args()

    server = Server(("127.0.0.1", 0), Handler)
    server.lock = threading.Lock()
    server.serial = 0
    server.record_path = args.record
    open(args.record, "a", encoding="utf-8").close()
    threading.Timer(args.lifetime, server.shutdown).start()
    with open(args.port_file + ".tmp", "w", encoding="utf-8") as f:
        f.write(str(server.server_address[1]))
    os.replace(args.port_file + ".tmp", args.port_file)
    try:
        server.serve_forever(poll_interval=0.2)
    except KeyboardInterrupt:
        pass
    server.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
