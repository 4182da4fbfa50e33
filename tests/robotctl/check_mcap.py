#!/usr/bin/env python3
"""check_mcap.py FILE [--unfinished]

Holds a recording against the published rules of MCAP 0, of CDR and of the message definitions, knowing
nothing of the program that wrote it. Prints as JSON, per topic, the number of messages and the last one,
decoded. --unfinished: the writer was killed, so the end may be missing, and what is half written is left
out. Exit status 1 and the first violation when there is one.
"""
import json
import struct
import sys
import zlib

MAGIC = b"\x89MCAP0\r\n"
HEADER, FOOTER, SCHEMA, CHANNEL, MESSAGE, CHUNK, MESSAGE_INDEX, CHUNK_INDEX = range(1, 9)
STATISTICS, SUMMARY_OFFSET, DATA_END = 0x0B, 0x0E, 0x0F
NUMBERS = {"uint8": "B", "uint16": "H", "int16": "h", "uint32": "I", "int32": "i", "float32": "f"}


def require(holds, what):
    if not holds:
        sys.exit(f"check_mcap: {what}")


class Cursor:
    def __init__(self, data, at=0):
        self.data, self.at = data, at

    def take(self, pattern):
        size = struct.calcsize("<" + pattern)
        require(self.at + size <= len(self.data), "a record is too short")
        values = struct.unpack_from("<" + pattern, self.data, self.at)
        self.at += size
        return values if len(values) > 1 else values[0]

    def bytes(self, pattern="I"):
        size = self.take(pattern)
        require(self.at + size <= len(self.data), "a text is too long")
        self.at += size
        return self.data[self.at - size:self.at]

    def text(self):
        return self.bytes().decode("utf-8")

    def map(self, key, value):
        content = Cursor(self.bytes())
        entries = []
        while content.at < len(content.data):
            entries.append((content.take(key), content.take(value)))
        require(len(dict(entries)) == len(entries), "a map has a key twice")
        return dict(entries)

    def end(self, what):
        require(self.at == len(self.data), f"{what} is longer than its fields")


def records(data, at, end, unfinished=False):
    """(opcode, offset of the record, content) of everything from at to end."""
    while at < end:
        if at + 9 > end or at + 9 + struct.unpack_from("<Q", data, at + 1)[0] > end:
            require(unfinished, f"the record at {at} reaches beyond what holds it")
            return
        size = struct.unpack_from("<Q", data, at + 1)[0]
        yield data[at], at, data[at + 9:at + 9 + size]
        at += 9 + size


class Definition:
    """A message definition: its fields and those of its parts, as nested (name, kind) lists."""

    def __init__(self, text):
        parts = text.split("=" * 80 + "\n")
        self.types = {"": self.fields(parts[0])}
        for part in parts[1:]:
            head, _, body = part.partition("\n")
            require(head.startswith("MSG: "), "a part of a definition has no name")
            self.types[head[5:]] = self.fields(body)

    @staticmethod
    def fields(text):
        lines = (line.split("#")[0].split() for line in text.splitlines())
        fields = [tuple(words) for words in lines if words]
        require(all(len(field) == 2 for field in fields), "a field isn't 'type name'")
        return fields

    def decode(self, data):
        require(data[:4] == b"\x00\x01\x00\x00", "a message isn't little-endian CDR")
        self.cursor = Cursor(data[4:])
        value = self.struct("")
        self.cursor.end("a CDR message")
        return value

    def struct(self, name):
        return {field: self.value(kind) for kind, field in self.types[name]}

    def value(self, kind):
        if not kind.endswith("]"):
            return self.single(kind)
        kind, _, size = kind[:-1].partition("[")
        return [self.single(kind) for _ in range(int(size) if size else self.single("uint32"))]

    def single(self, kind):
        if kind not in NUMBERS:
            return self.struct(kind)
        size = struct.calcsize(NUMBERS[kind])
        self.cursor.at += -self.cursor.at % size
        return self.cursor.take(NUMBERS[kind])


class File:
    def __init__(self, data, unfinished):
        self.data, self.unfinished = data, unfinished
        self.schemas, self.channels, self.chunks = {}, {}, []
        self.counts, self.last, self.times = {}, {}, []
        self.read_data()

    def read_data(self):
        require(self.data.startswith(MAGIC), "the magic at the beginning is missing")
        first, data_end = True, None
        for opcode, at, content in records(self.data, len(MAGIC), len(self.data), self.unfinished):
            require((opcode == HEADER) == first, "the header isn't the first record, or there are two")
            first = False
            if opcode == HEADER:
                cursor = Cursor(content)
                cursor.text(), cursor.text(), cursor.end("the header")
            elif opcode == CHUNK:
                self.finish_chunk()
                self.read_chunk(at, content)
            elif opcode == MESSAGE_INDEX:
                self.read_index(at, content)
            elif opcode == DATA_END:
                data_end = at + 9 + len(content)
                break
            else:
                require(False, f"a record of kind {opcode} in the data section")
        require(not first, "no header")
        if self.unfinished and data_end is None:
            return
        self.finish_chunk()
        require(data_end is not None, "no end of the data")
        self.read_summary(data_end)

    def read_schema(self, content, known):
        cursor = Cursor(content)
        number, name, encoding, data = cursor.take("H"), cursor.text(), cursor.text(), cursor.bytes()
        cursor.end("a schema")
        require(number != 0 and number not in known, "a schema's id is 0 or used twice")
        require(encoding in ("ros2msg", "jsonschema"), f"schema encoding {encoding}")
        parsed = Definition(data.decode()) if encoding == "ros2msg" else json.loads(data)
        known[number] = (name, encoding, data, parsed)

    def read_channel(self, content, known, schemas):
        cursor = Cursor(content)
        number, schema, topic, encoding = cursor.take("H"), cursor.take("H"), cursor.text(), cursor.text()
        require(cursor.take("I") == 0, "a channel has metadata")
        cursor.end("a channel")
        require(number not in known and schema in schemas, "a channel is there twice or has no schema")
        wanted = {"ros2msg": "cdr", "jsonschema": "json"}[schemas[schema][1]]
        require(encoding == wanted, f"{topic} has messages in {encoding}")
        known[number] = (topic, encoding, schema)

    def read_chunk(self, at, content):
        cursor = Cursor(content)
        first, last, size, crc, compression = cursor.take("Q"), cursor.take("Q"), cursor.take("Q"), cursor.take("I"), cursor.text()
        inner = cursor.bytes("Q")
        cursor.end("a chunk")
        require(compression == "" and len(inner) == size, "a chunk's size is wrong")
        require(crc == zlib.crc32(inner), "a chunk's checksum is wrong")
        messages = {}  # (channel, time, offset)
        for opcode, offset, record in records(inner, 0, len(inner)):
            if opcode == SCHEMA:
                self.read_schema(record, self.schemas)
            elif opcode == CHANNEL:
                self.read_channel(record, self.channels, self.schemas)
            else:
                require(opcode == MESSAGE, f"a record of kind {opcode} in a chunk")
                messages.setdefault(*self.read_message(record, offset))
        times = [time for _, time, _ in messages]
        bounds = (min(times), max(times)) if times else (0, 0)
        require((first, last) == bounds, "a chunk's times are wrong")
        self.times += bounds if times else ()
        self.chunks.append({"at": at, "length": 9 + len(content), "size": size, "bounds": bounds,
                            "messages": set(messages), "indexed": set(), "indexes": {}, "index_length": 0})

    def read_message(self, record, offset):
        cursor = Cursor(record)
        channel, sequence, log, publish = cursor.take("HIQQ")
        require(channel in self.channels, "a message has no channel")
        topic, encoding, schema = self.channels[channel]
        require(sequence == self.counts.get(channel, 0), f"{topic}: a sequence number is missing")
        require(log == publish, f"{topic}: there are two times")
        self.counts[channel] = sequence + 1
        data = record[cursor.at:]
        decoded = self.schemas[schema][3].decode(data) if encoding == "cdr" else json.loads(data)
        self.last[topic] = decoded
        return (channel, log, offset), None

    def read_index(self, at, content):
        chunk, cursor = self.chunks[-1], Cursor(content)
        require(at == chunk["at"] + chunk["length"] + chunk["index_length"], "an index isn't behind its chunk")
        channel, entries = cursor.take("H"), Cursor(cursor.bytes())
        cursor.end("a message index")
        require(channel not in chunk["indexes"], "a channel has two indexes")
        while entries.at < len(entries.data):
            time, offset = entries.take("QQ")
            chunk["indexed"].add((channel, time, offset))
        chunk["indexes"][channel] = at
        chunk["index_length"] += 9 + len(content)

    def finish_chunk(self):
        if self.chunks:
            chunk = self.chunks[-1]
            require(chunk["indexed"] == chunk["messages"], "an index doesn't list its chunk's messages")

    def read_summary(self, start):
        tail = len(self.data) - len(MAGIC) - 29
        require(self.data.endswith(MAGIC) and self.data[tail] == FOOTER, "no footer at the end")
        summary, offsets, crc = struct.unpack_from("<QQI", self.data, tail + 9)
        require(summary == start, "the summary isn't behind the data")
        require(crc == zlib.crc32(self.data[start:len(self.data) - len(MAGIC) - 4]), "the summary's checksum is wrong")
        schemas, channels, groups, indexes = {}, {}, {}, []
        for opcode, at, content in records(self.data, start, offsets):
            group = groups.setdefault(opcode, [at, 0])
            require(group[0] + group[1] == at, "records of a kind aren't together")
            group[1] += 9 + len(content)
            cursor = Cursor(content)
            if opcode == SCHEMA:
                self.read_schema(content, schemas)
            elif opcode == CHANNEL:
                self.read_channel(content, channels, schemas)
            elif opcode == STATISTICS:
                self.check_statistics(cursor)
            elif opcode == CHUNK_INDEX:
                indexes.append(cursor)
            else:
                require(False, f"a record of kind {opcode} in the summary")
        plain = lambda known: {number: entry[:3] for number, entry in known.items()}
        require(plain(schemas) == plain(self.schemas) and channels == self.channels, "the summary's schemas or channels differ")
        require(STATISTICS in groups and len(indexes) == len(self.chunks), "statistics or chunk indexes are missing")
        for cursor, chunk in zip(indexes, self.chunks):
            self.check_chunk_index(cursor, chunk)
        told = {}
        for opcode, at, content in records(self.data, offsets, tail):
            require(opcode == SUMMARY_OFFSET, "something else among the summary's offsets")
            kind, begin, length = struct.unpack("<BQQ", content)
            told[kind] = [begin, length]
        require(told == groups, "the summary's offsets are wrong")

    def check_statistics(self, cursor):
        messages, schemas, channels, attachments, metadata, chunks, first, last = cursor.take("QHIIIIQQ")
        counts = cursor.map("H", "Q")
        cursor.end("the statistics")
        require((schemas, channels, attachments, metadata, chunks) == (len(self.schemas), len(self.channels), 0, 0, len(self.chunks)), "the statistics count wrongly")
        require(messages == sum(self.counts.values()), "the statistics count other messages")
        require({k: v for k, v in counts.items() if v} == self.counts, "the statistics count other messages per channel")
        require((first, last) == (min(self.times, default=0), max(self.times, default=0)), "the statistics' times are wrong")

    def check_chunk_index(self, cursor, chunk):
        first, last, at, length = cursor.take("QQQQ")
        indexes, index_length = cursor.map("H", "Q"), cursor.take("Q")
        compression, compressed, size = cursor.text(), cursor.take("Q"), cursor.take("Q")
        cursor.end("a chunk index")
        require(((first, last), at, length) == (chunk["bounds"], chunk["at"], chunk["length"]), "a chunk index points elsewhere")
        require((indexes, index_length) == (chunk["indexes"], chunk["index_length"]), "a chunk index has wrong indexes")
        require((compression, compressed, size) == ("", chunk["size"], chunk["size"]), "a chunk index has wrong sizes")


def main(arguments):
    unfinished = "--unfinished" in arguments
    with open(arguments[0], "rb") as source:
        file = File(source.read(), unfinished)
    counts = {topic: file.counts.get(number, 0) for number, (topic, _, _) in file.channels.items()}
    print(json.dumps({"counts": counts, "last": file.last}))


main(sys.argv[1:])
