#!/usr/bin/python3
"""A stand-in for OpenAI-compatible model servers, for the voice tests.

The first path segment chooses the behaviour: /ok, /slow (answers after 3 s), /fail (500),
/unfaithful (the chat answer adds a word), /key (401 unless "Authorization: Bearer sesame").
Transcriptions answer "<n> samples" for the uploaded WAV; chat completions answer the text after
"Text: " with a capital letter and a comma after its first word, as JSON {"text": ...}.
Prints the port on stdout once listening.
"""
import json
import sys
import time
from email.parser import BytesParser
from email.policy import default
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer


class Handler(BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def answer(self, status, body):
        data = json.dumps(body).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        mode = self.path.split("/")[1]
        length = int(self.headers.get("Content-Length", 0))
        raw = self.rfile.read(length)
        if mode == "slow":
            time.sleep(3)
        if mode == "fail":
            return self.answer(500, {"error": "broken"})
        if mode == "key" and self.headers.get("Authorization") != "Bearer sesame":
            return self.answer(401, {"error": "no key"})
        if self.path.endswith("/v1/audio/transcriptions"):
            head = b"Content-Type: " + self.headers["Content-Type"].encode() + b"\r\n\r\n"
            message = BytesParser(policy=default).parsebytes(head + raw)
            form = {part.get_param("name", header="content-disposition"):
                    part.get_payload(decode=True) for part in message.iter_parts()}
            wav = form["file"]
            assert wav[:4] == b"RIFF" and form["model"]
            return self.answer(200, {"text": " %d samples" % ((len(wav) - 44) // 2)})
        if self.path.endswith("/v1/chat/completions"):
            request = json.loads(raw)
            assert request["temperature"] == 0
            text = request["messages"][1]["content"].split("Text: ", 1)[1].split("\n")[0]
            words = text.split(" ")
            words[0] = words[0].capitalize() + ","
            if mode == "unfaithful":
                words.append("please")
            content = json.dumps({"text": " ".join(words) + "!"})
            return self.answer(200, {"choices": [{"message": {"content": content}}]})
        self.answer(404, {})


server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
