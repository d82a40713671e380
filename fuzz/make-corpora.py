#!/usr/bin/env python3
"""Makes the seeds of the bitstream fuzz targets from the recorded streams in tests/data, and those of DatagramReceiverFuzz."""
import random
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

# Any operations over bytes that are mostly 0 to 4, for emulation prevention at every place.
chance = random.Random(7)
for seed in range(24):
    operations = bytes(chance.randrange(1, 256) for _ in range(40))
    read = bytes(chance.randrange(5 if chance.random() < 0.6 else 256) for _ in range(chance.randrange(1, 400)))
    write("BitReaderFuzz", f"random-{seed}", operations + b"\0" + read)

for file in sorted((data / "loas").glob("*.loas")):
    stream = file.read_bytes()
    frame = stream[: 3 + ((stream[1] & 0x1F) << 8 | stream[2])]
    write("LoasFrameFuzz", file.stem, frame)
    write("StreamMuxConfigFuzz", file.stem, frame[3:40])  # useSameStreamMux and what follows
    write("AudioSpecificConfigFuzz", file.stem, frame[5:40])  # behind 16 bits of multiplex configuration


def batch(datagrams, refuse=False):
    """What DatagramReceiverFuzz receives at once."""
    sized = b"".join(len(datagram).to_bytes(2, "big") + datagram for datagram in datagrams)
    return bytes([len(datagrams) | refuse << 7]) + sized


def rtp(number, payload):
    return bytes([0x80, 33]) + number.to_bytes(2, "big") + bytes(4) + b"kvnr" + payload


def packets(first, count=7):
    return b"".join(bytes([0x47, 1, 0, 0x10 | (first + index) & 15]) + bytes([index]) * 184 for index in range(count))


usual = [packets(number * 7) for number in range(5)]
uneven = [packets(0), packets(7, 3), b"", packets(10, 1), bytes(2500), packets(11)]
write("DatagramReceiverFuzz", "usual", b"\2" + batch(usual) + batch(usual))
write("DatagramReceiverFuzz", "uneven", b"\2" + batch(uneven) + batch(usual, refuse=True) + batch(uneven))
write("DatagramReceiverFuzz", "uneven-small-buffers", b"\0" + batch(uneven) + batch(usual))
numbered = [rtp(65533 + number & 0xFFFF, payload) for number, payload in enumerate(usual)]
write("DatagramReceiverFuzz", "rtp", b"\3" + batch(numbered) + batch(uneven))
write("DatagramReceiverFuzz", "rtp-reordered", b"\1" + batch(numbered[:2] + numbered[:1:-1] + numbered[1:3]))
