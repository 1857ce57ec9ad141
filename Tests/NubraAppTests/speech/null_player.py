"""The audio output of the speech tests' speech-dispatcher module, where there is no sound card.

Reads espeak-ng's WAV stream from stdin and plays it into nothing at the speed of real playback, so a
text takes as long as it would to hear; then appends "<voice> <seconds>" to the log named first.
"""
import sys
import time
import wave

log_path, voice = sys.argv[1], sys.argv[2]
stream = wave.open(sys.stdin.buffer)  # espeak-ng streams: the header's length is meaningless
rate = stream.getframerate()
frame_bytes = stream.getsampwidth() * stream.getnchannels()
start = time.monotonic()
played = 0
while chunk := stream.readframes(rate // 10):
    played += len(chunk) // frame_bytes
    ahead = played / rate - (time.monotonic() - start)
    if ahead > 0:
        time.sleep(ahead)
with open(log_path, "a", encoding="utf-8") as log:
    log.write(f"{voice} {played / rate:.2f}\n")
