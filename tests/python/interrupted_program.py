"""A program that measures session after session until Ctrl-C. Usage: interrupted_program.py ADDRESS"""

import sys

import vantor

CONFIGURATION = {"groups": [[{"sensor_id": 1, "config": {"num_points": 100}},
                             {"sensor_id": 2, "config": {"num_points": 3000}}]]}

try:
    print("begins", flush=True)
    while True:
        with vantor.connect(sys.argv[1]) as server:
            for _ in range(2):
                with server.session(CONFIGURATION) as session:
                    for frame in session.frames(count=20):
                        frame[0, 1].level.max()
except KeyboardInterrupt:
    sys.exit(7)
