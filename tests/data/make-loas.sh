#!/bin/sh
# Makes loas/<case>.loas, LOAS frames with a StreamMuxConfig in each, loas/<case>.aac, the same encoder's access
# units one behind the other, and loas/<case>.expected, their sizes and the stream's properties as ffprobe reads
# them. Needs ffmpeg, and GStreamer with voaacenc (plugins-bad) and mp4mux (plugins-good) for the second encoder.
set -eu
cd "$(dirname "$0")"
mkdir -p loas
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# wrap <case>: from the encoded stream in $work/encoded.mp4
wrap() {
    ffmpeg -nostdin -v error -y -i "$work/encoded.mp4" -map 0:a -c copy -f latm -smc-interval 1 "loas/$1.loas"
    ffmpeg -nostdin -v error -y -i "$work/encoded.mp4" -map 0:a -c copy -f data "loas/$1.aac"
    {
        ffprobe -v error -bitexact -of default=noprint_wrappers=1 -show_entries \
            stream=profile,sample_rate,channels "$work/encoded.mp4" | sed 's/=/ /'
        ffprobe -v error -of csv=p=0 -select_streams a -show_entries packet=size "$work/encoded.mp4" |
            sed -n 's/^\([0-9][0-9]*\).*/size \1/p'
    } > "loas/$1.expected"
}

# aac <case> <sampling rate> <channel layout> <bit rate> <encoder arguments ...>
aac() {
    name=$1 rate=$2 layout=$3 bits=$4
    shift 4
    ffmpeg -nostdin -v error -y -bitexact -f lavfi -i "anoisesrc=color=pink:sample_rate=$rate:amplitude=0.7:seed=1" \
        -af "aformat=channel_layouts=$layout" -t 0.3 -c:a aac -b:a "$bits" "$@" "$work/encoded.mp4"
    wrap "$name"
}

# voaac <case> <sampling rate> <channels> <bit rate>
voaac() {
    gst-launch-1.0 -q audiotestsrc wave=pink-noise num-buffers=14 samplesperbuffer=1024 ! \
        "audio/x-raw,rate=$2,channels=$3" ! voaacenc bitrate="$4" ! aacparse ! mp4mux ! \
        filesink location="$work/encoded.mp4"
    wrap "$1"
}

aac lc-48000-stereo-64k 48000 stereo 64k
aac lc-48000-stereo-320k 48000 stereo 320k
aac lc-44100-mono-32k 44100 mono 32k
aac lc-22050-mono-16k 22050 mono 16k
aac lc-8000-mono-8k 8000 mono 8k
aac lc-96000-stereo-256k 96000 stereo 256k
aac lc-48000-5.1-384k 48000 5.1 384k
aac lc-48000-7.1-512k 48000 "7.1(wide)" 512k
aac lc-48000-quad-256k 48000 quad 256k
aac lc-48000-octagonal-256k 48000 octagonal 256k
aac main-48000-stereo-128k 48000 stereo 128k -profile:a aac_main
aac ltp-48000-stereo-128k 48000 stereo 128k -profile:a aac_ltp -strict -2
voaac voaac-48000-stereo-64k 48000 2 64000
voaac voaac-44100-mono-48k 44100 1 48000
