"""A stand-in coding agent for the jump tests: it reports its session through the real
`vantler-hook`, as Claude Code's hooks would, then waits in its terminal.
Usage: fake_agent.py BUILD_DIR SESSION_ID"""
import json
import os
import subprocess
import sys
import time

build, session = sys.argv[1:3]
payload = {'hook_event_name': 'UserPromptSubmit', 'session_id': session, 'cwd': os.getcwd(),
           'prompt': 'Where does this run?'}
subprocess.run([os.path.join(build, 'vantler-hook'), 'claude'], input=json.dumps(payload).encode(),
               timeout=10)
time.sleep(600)
