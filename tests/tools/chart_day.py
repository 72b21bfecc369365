#!/usr/bin/env python3
"""Writes a made-up day of the module's files into a folder. usage: chart_day.py FOLDER"""
import math
import pathlib
import sys

DAY = "2026-01-31"
FAILED_MINUTES = range(300, 310)   # of the first processor, and of both memory values
MISSING_MINUTES = range(720, 780)  # of all files
HOSTILE = "Ad</script><script>alert(1)</script>\"'100%&amp;<!--"


def clock(minute, second=7):
    return f"{minute // 60:02}:{minute % 60:02}:{second:02}"


def wave(minute, low, high, period=240):
    return low + (high - low) * (0.5 + 0.4 * math.sin(minute * 2 * math.pi / period) + 0.1 * math.sin(minute * 1.7))


def write_trace(path, columns, values, day=DAY, encoding="cp1252"):
    lines = ["Time\t" + "".join("\t" + column for column in columns)]
    for minute in range(1440):
        if minute not in MISSING_MINUTES:
            lines.append(f"{day} {clock(minute)}" + "".join(f"\t{int(value)}" for value in values(minute)))
    path.write_bytes(("\r\n".join(lines) + "\r\n").encode(encoding))


def processors(minute):
    failed = minute in FAILED_MINUTES
    return [-1 if failed else wave(minute, 5, 97), wave(minute + 60, 10, 60), wave(minute, 0, 30, 90), 2]


def memory(minute):
    return [-1, -1] if minute in FAILED_MINUTES else [wave(minute, 55, 70, 700), wave(minute, 20, 25, 900)]


def report(time, speeds=(1000, 100)):
    adapters = "".join(f'<NetworkUtil MACAddress="02:00:00:00:00:0{i}" LinkSpeed="{speed}" Utilization="{30 + i}"/>'
                       for i, speed in enumerate(speeds))
    return (f'<ServerPKIInformation xmlns="AgentInfoProbe"><Time>{time}</Time>'
            '<CPUUtil Index="0" Utilization="17"/><CPUUtil Index="1" Utilization="33"/>'
            '<MemoryUtil PhysicalMemUtil="61" PhysicalMemCapacity="16384" PageFileUtil="22" PageFileCapacity="18944"/>'
            f'<DiskUtil Index="0" Throughput="20971520"/>{adapters}</ServerPKIInformation>')


def alerts(day=DAY):
    rows = [(1, 85, 91, 610, ""), (1, 85, 88, 611, ""), (1, 85, 95, 1230, ""), (2, 85, 90, 100, "PF"),
            (3, 50, 72, 1000, "0 C: <b>\"100%\"</b>"), (4, 60, 61, 1100, HOSTILE.replace(";", ""))]
    return "".join(f"{kind};{threshold};{value};1769800000({day} {clock(minute, 30)});{name};\r\n"
                   for kind, threshold, value, minute, name in rows)


def main():
    folder = pathlib.Path(sys.argv[1])
    write_trace(folder / "CPUUtil.log", ["CPU1", "CPU2", "CPU3", "CPU4"], processors)
    write_trace(folder / "MemoryUtil.log", ["Physical Mem", "Page File"], memory)
    write_trace(folder / "DiskUtil.log", ["Disk0", "Disk1"],
                lambda minute: [wave(minute, 0, 80) * 1048576, wave(minute, 0, 9, 99) * 1048576])
    write_trace(folder / "NetworkUtil.log", [HOSTILE + "-11", "Br\u00fccke 100%-12"],
                lambda minute: [wave(minute, 0, 90) * 1250000, wave(minute, 0, 2) * 1250000])
    write_trace(folder / "Many.log", [f"CPU{i}" for i in range(1, 13)], lambda minute: [i * 5 for i in range(12)])
    write_trace(folder / "OtherDay.log", ["CPU1"], lambda minute: [50], day="2026-02-01")
    (folder / "report.xml").write_text(report(f"{DAY} 09:30:00") + "\n", encoding="utf-16")
    (folder / "LocalAlt.dat").write_text(alerts(), encoding="cp1252", newline="")


if __name__ == "__main__":
    main()
