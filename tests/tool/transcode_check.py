#!/usr/bin/env python3
"""Checks of "vccodecs transcode", read back with FFmpeg's own tools.

Usage: transcode_check.py VCCODECS MEDIA_DIR WORK_DIR CHECK
CHECK is one of:
  formats  every test file to mp4 and to mkv with the default codecs: FFmpeg
           decodes each output whole without an error, every stream keeps its
           frame count (within two frames; audio only where its codec stays),
           audio its duration (within 50 ms),
           and audio starts against video as in the source (within 40 ms);
           with --vcodec copy --acodec copy every packet is kept
  split    --split 5 of the 20 s file: four files, each opening on a key
           frame, together holding every source frame once; the --report
           page written beside them
  rate     --rate 50 and --rate 15 of the 2 s file at 25 fps: 100 and 30
           frames (within one), ffprobe's r_frame_rate as asked, the video
           still 2 s long, the audio as with no --rate
  failures an unknown codec, a missing input and an unwritable output fail
           with a message and leave no output file behind
Exits non-zero with the failed expectations listed.
"""
import json
import os
import shutil
import subprocess
import sys

SOURCES = ["h264_aac.mp4", "hevc_opus.mkv", "mpeg2_mp2_2prog.ts", "mpeg2_pcm.mxf", "vp9_vorbis.webm",
           "video_only.mp4"]
FRAME_SLACK = 2
AUDIO_SLACK = 0.050
OFFSET_SLACK = 0.040

failures = []


def expect(ok, text):
    if not ok:
        failures.append(text)
    return ok


def run(cmd):
    return subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def streams_read_back(path):
    """Per stream of path (video and audio, in order): type, decoded frame
    count, first time, audio seconds, and whether the first frame is a key."""
    out = run(["ffprobe", "-v", "error", "-show_entries",
               "stream=index,codec_type,codec_name:frame=stream_index,key_frame,pts_time,best_effort_timestamp_time,"
               "nb_samples,sample_rate", "-of", "json", path])
    if out.returncode != 0:
        return None
    data = json.loads(out.stdout)
    streams = {}
    for s in data.get("streams", []):
        if s["codec_type"] in ("video", "audio"):
            streams[s["index"]] = {"type": s["codec_type"], "codec": s.get("codec_name"), "frames": 0, "first": None, "samples_s": 0.0,
                                   "first_key": None}
    for f in data.get("frames", []):
        s = streams.get(f.get("stream_index"))
        if s is None:
            continue
        t = f.get("pts_time", f.get("best_effort_timestamp_time"))
        if s["frames"] == 0:
            s["first_key"] = f.get("key_frame") == 1
        s["frames"] += 1
        if t not in (None, "N/A") and (s["first"] is None or float(t) < s["first"]):
            s["first"] = float(t)
        if s["type"] == "audio" and f.get("nb_samples") and f.get("sample_rate"):
            s["samples_s"] += int(f["nb_samples"]) / int(f["sample_rate"])
    return [streams[k] for k in sorted(streams)]


def decodes_cleanly(path):
    out = run(["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0", "-f", "null", "-"])
    return out.returncode == 0 and not out.stderr.strip(), out.stderr.strip()[:300]


def av_offset(streams):
    video = [s["first"] for s in streams if s["type"] == "video" and s["first"] is not None]
    audio = [s["first"] for s in streams if s["type"] == "audio" and s["first"] is not None]
    return audio[0] - video[0] if video and audio else None


def transcode(vccodecs, args):
    return run([vccodecs, "transcode"] + args)


def check_formats(vccodecs, media, work):
    for name in SOURCES:
        src = os.path.join(media, name)
        want = streams_read_back(src)
        for ext in ("mp4", "mkv"):
            out = os.path.join(work, os.path.splitext(name)[0] + "." + ext)
            label = name + " -> " + ext
            res = transcode(vccodecs, [src, out, "--json"])
            if not expect(res.returncode == 0, f"{label}: exit {res.returncode}: {res.stderr.strip()[-300:]}"):
                continue
            ok, err = decodes_cleanly(out)
            expect(ok, f"{label}: FFmpeg does not decode the output cleanly: {err}")
            got = streams_read_back(out)
            if not expect(got is not None and len(got) == len(want),
                          f"{label}: {len(got or [])} streams read back, the source has {len(want)}"):
                continue
            for n, (w, g) in enumerate(zip(want, got)):
                expect(w["type"] == g["type"], f"{label}: stream {n} is {g['type']}, was {w['type']}")
                # Audio frames of another codec hold another number of
                # samples: there the duration below is what must match.
                if w["type"] == "video" or w["codec"] == g["codec"]:
                    expect(abs(w["frames"] - g["frames"]) <= FRAME_SLACK,
                           f"{label}: stream {n}: {g['frames']} frames, the source has {w['frames']}")
                if w["type"] == "audio":
                    expect(abs(w["samples_s"] - g["samples_s"]) <= AUDIO_SLACK,
                           f"{label}: stream {n}: {g['samples_s']:.3f} s of audio, the source has "
                           f"{w['samples_s']:.3f} s")
            w_off, g_off = av_offset(want), av_offset(got)
            if w_off is not None:
                expect(g_off is not None and abs(w_off - g_off) <= OFFSET_SLACK,
                       f"{label}: audio starts {g_off} s after video, in the source {w_off:.3f} s")
            # The JSON summary is whole and names what was written.
            try:
                summary = json.loads(res.stdout)
                expect(summary["outputs"] == [out] and summary["result"] == "ok",
                       f"{label}: the JSON summary names {summary['outputs']}, result {summary['result']}")
                expect(len(summary["streams"]) == len(want), f"{label}: the JSON summary lists "
                       f"{len(summary['streams'])} streams")
            except (ValueError, KeyError) as e:
                expect(False, f"{label}: the JSON summary does not read: {e}")


def check_copy(vccodecs, media, work):
    """Copied streams keep every packet and their codecs."""
    src = os.path.join(media, "h264_aac.mp4")
    out = os.path.join(work, "copy.mkv")
    res = transcode(vccodecs, [src, out, "--vcodec", "copy", "--acodec", "copy"])
    if not expect(res.returncode == 0, f"copy: exit {res.returncode}: {res.stderr.strip()[-300:]}"):
        return
    ok, err = decodes_cleanly(out)
    expect(ok, f"copy: FFmpeg does not decode the output cleanly: {err}")
    want, got = streams_read_back(src), streams_read_back(out) or []
    # Audio may gain its encoder-delay frame back: mp4 hides it with an edit
    # list that mkv does not have (ffmpeg's own copy shows the same).
    same = len(want) == len(got) and all(
        w["codec"] == g["codec"] and abs(w["frames"] - g["frames"]) <= (0 if w["type"] == "video" else FRAME_SLACK)
        for w, g in zip(want, got))
    expect(same, f"copy: streams {[(s['codec'], s['frames']) for s in got]}, "
                 f"the source has {[(s['codec'], s['frames']) for s in want]}")


def check_split(vccodecs, media, work):
    src = os.path.join(media, "h264_aac_20s.mp4")
    out = os.path.join(work, "split.mp4")
    report = os.path.join(work, "split.html")
    res = transcode(vccodecs, [src, out, "--split", "5", "--report", report])
    if not expect(res.returncode == 0, f"split: exit {res.returncode}: {res.stderr.strip()[-300:]}"):
        return
    # The report page came with it, with its plots and the muxer's table.
    page = open(report, encoding="utf-8").read() if os.path.exists(report) else ""
    expect("<svg" in page and "split-001.mp4" in page and "muxer" in page,
           "split: the report page is missing or lacks its plots")
    parts = [os.path.join(work, f"split-{n:03d}.mp4") for n in range(1, 6)]
    expect(not os.path.exists(out), "split: the unnumbered output was written too")
    expect(all(os.path.exists(p) for p in parts[:4]) and not os.path.exists(parts[4]),
           "split: not exactly four parts: " + ", ".join(p for p in parts if os.path.exists(p)))
    want = streams_read_back(src)
    totals = [0] * len(want)
    for p in parts[:4]:
        if not os.path.exists(p):
            continue
        ok, err = decodes_cleanly(p)
        expect(ok, f"split: {os.path.basename(p)} does not decode cleanly: {err}")
        got = streams_read_back(p) or []
        for n, s in enumerate(got[:len(totals)]):
            totals[n] += s["frames"]
            if s["type"] == "video":
                expect(s["first_key"], f"split: {os.path.basename(p)} does not open on a key frame")
                expect(s["frames"] > 0, f"split: {os.path.basename(p)} holds no video")
    for n, w in enumerate(want):
        slack = 0 if w["type"] == "video" else FRAME_SLACK
        expect(abs(totals[n] - w["frames"]) <= slack,
               f"split: the parts hold {totals[n]} frames of stream {n}, the source {w['frames']}")


def frame_rate(path):
    out = run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "stream=r_frame_rate",
               "-of", "default=nw=1:nk=1", path])
    return out.stdout.strip() if out.returncode == 0 else None


def check_rate(vccodecs, media, work):
    src = os.path.join(media, "h264_aac.mp4")
    want = streams_read_back(src)
    video_s = want[0]["frames"] / 25.0
    for rate, text in ((50, "50/1"), (15, "15/1")):
        label = f"--rate {rate}"
        out = os.path.join(work, f"rate{rate}.mp4")
        res = transcode(vccodecs, [src, out, "--rate", str(rate)])
        if not expect(res.returncode == 0, f"{label}: exit {res.returncode}: {res.stderr.strip()[-300:]}"):
            continue
        expect("rate" not in res.stderr, f"{label}: stderr speaks of the rate: {res.stderr.strip()[-300:]}")
        ok, err = decodes_cleanly(out)
        expect(ok, f"{label}: FFmpeg does not decode the output cleanly: {err}")
        expect(frame_rate(out) == text, f"{label}: r_frame_rate {frame_rate(out)}, asked {text}")
        got = streams_read_back(out) or []
        if not expect(len(got) == len(want), f"{label}: {len(got)} streams read back, the source has {len(want)}"):
            continue
        frames = round(video_s * rate)
        expect(abs(got[0]["frames"] - frames) <= 1, f"{label}: {got[0]['frames']} video frames, want {frames}")
        for n, (w, g) in enumerate(zip(want[1:], got[1:]), 1):
            expect(abs(w["frames"] - g["frames"]) <= FRAME_SLACK and abs(w["samples_s"] - g["samples_s"]) <= AUDIO_SLACK,
                   f"{label}: stream {n}: {g['frames']} frames, {g['samples_s']:.3f} s of audio; the source "
                   f"{w['frames']}, {w['samples_s']:.3f} s")
        w_off, g_off = av_offset(want), av_offset(got)
        if w_off is not None:
            expect(g_off is not None and abs(w_off - g_off) <= OFFSET_SLACK,
                   f"{label}: audio starts {g_off} s after video, in the source {w_off:.3f} s")


def check_failures(vccodecs, media, work):
    src = os.path.join(media, "h264_aac.mp4")
    cases = [
        ("unknown codec", [src, os.path.join(work, "bad_codec.mp4"), "--vcodec", "no_such_codec"],
         os.path.join(work, "bad_codec.mp4"), "no video encoder takes"),
        ("missing input", [os.path.join(media, "no-such-file.mp4"), os.path.join(work, "missing.mp4")],
         os.path.join(work, "missing.mp4"), "cannot open"),
        ("unwritable output", [src, os.path.join(work, "no-such-dir", "out.mp4")],
         os.path.join(work, "no-such-dir", "out.mp4"), "cannot write"),
        ("bad bit rate", [src, os.path.join(work, "bad_rate.mp4"), "--vbitrate", "fast"],
         os.path.join(work, "bad_rate.mp4"), "--vbitrate wants"),
    ]
    for label, args, path, message in cases:
        res = transcode(vccodecs, args)
        expect(res.returncode != 0, f"{label}: exit 0")
        expect(message in res.stderr, f"{label}: no '{message}' in: {res.stderr.strip()[-300:]}")
        expect(not os.path.exists(path), f"{label}: {path} was left behind")


def main():
    if len(sys.argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    vccodecs, media, work, check = sys.argv[1:]
    work = os.path.join(work, check)
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    checks = {"formats": [check_formats, check_copy], "split": [check_split], "rate": [check_rate], "failures": [check_failures]}
    for fn in checks[check]:
        fn(vccodecs, media, work)
    for text in failures:
        print("FAILED:", text)
    if not failures:
        print(f"transcode {check}: all expectations met")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
