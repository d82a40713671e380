#!/usr/bin/env python3
"""Makes the seeds of the bitstream fuzz targets from the recorded streams in tests/data."""
from pathlib import Path

here = Path(__file__).resolve().parent
data = here.parent / "tests" / "data"


def write(target, name, content):
    folder = here / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content)


for file in sorted((data / "sps").glob("*.sps")):
    write("SequenceParameterSetFuzz", file.stem, file.read_bytes())
    write("BitReaderFuzz", file.stem, bytes([32, 4, 129, 133, 33, 7, 2, 64, 255, 0]) + file.read_bytes())

for file in sorted((data / "loas").glob("*.loas")):
    stream = file.read_bytes()
    frame = stream[: 3 + ((stream[1] & 0x1F) << 8 | stream[2])]
    write("LoasFrameFuzz", file.stem, frame)
    write("StreamMuxConfigFuzz", file.stem, frame[3:40])  # useSameStreamMux and what follows
    write("AudioSpecificConfigFuzz", file.stem, frame[5:40])  # behind 16 bits of multiplex configuration
