#!/bin/sh
# Makes sps/<case>.sps, the parameter sets of a stream encoded by x264 (start code, SPS, start code, PPS), and
# sps/<case>.expected, what ffmpeg and ffprobe read from it: every syntax element of the SPS by its name, and the
# stream's properties as "ffprobe.<property>". Needs ffmpeg with libx264.
set -eu
cd "$(dirname "$0")"
mkdir -p sps
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# sps <case> <size> <rate> <pixel format> <encoder arguments ...>
sps() {
    name=$1 size=$2 rate=$3 format=$4
    shift 4
    ffmpeg -nostdin -v error -y -bitexact -f lavfi -i "testsrc2=size=$size:rate=$rate" -frames:v 3 \
        -pix_fmt "$format" -c:v libx264 -threads 1 -preset ultrafast "$@" "$work/stream.h264"
    ffmpeg -nostdin -v error -y -i "$work/stream.h264" -frames:v 1 -c copy -bsf:v "filter_units=pass_types=7-8" \
        -f h264 "sps/$name.sps"
    {
        ffprobe -v error -bitexact -select_streams v:0 -of default=noprint_wrappers=1 -show_entries \
            stream=profile,level,width,height,pix_fmt,sample_aspect_ratio,r_frame_rate,bits_per_raw_sample,field_order,color_range,color_primaries,color_transfer,color_space \
            "$work/stream.h264" | sed 's/^/ffprobe./; s/=/ /'
        ffmpeg -nostdin -hide_banner -i "$work/stream.h264" -frames:v 1 -c copy -bsf:v trace_headers -f null - 2>&1 |
            awk '/Sequence Parameter Set/ { if (seen++) exit; inside = 1; next }
                 /Picture Parameter Set/ { inside = 0 }
                 inside && / = / { print $5, $NF }
                 inside && / rbsp_stop_one_bit / { exit }'
    } > "sps/$name.expected"
}

sps baseline-176x144 176x144 15 yuv420p -profile:v baseline
sps main-720x576-25i-mbaff 720x576 25 yuv420p -profile:v main -flags +ildct+ilme -vf setsar=16/11 \
    -x264-params "force-cfr=1:interlaced=1"
sps main-720x480-29.97i-fake 720x480 30000/1001 yuv420p -profile:v main -vf setsar=10/11 \
    -x264-params "force-cfr=1:fake-interlaced=1"
sps high-1920x1080-23.976p 1920x1080 24000/1001 yuv420p -profile:v high -x264-params "force-cfr=1:8x8dct=1"
sps high-1920x1080-24p 1920x1080 24 yuv420p -profile:v high -x264-params "force-cfr=1:8x8dct=1"
sps high-1920x1080-25p-bt709 1920x1080 25 yuv420p -profile:v high -color_primaries bt709 -color_trc bt709 \
    -colorspace bt709 -x264-params "force-cfr=1:8x8dct=1"
sps high-1920x1080-25i-mbaff 1920x1080 25 yuv420p -profile:v high -flags +ildct+ilme \
    -x264-params "force-cfr=1:8x8dct=1:interlaced=1"
sps high-1920x1080-29.97i-mbaff 1920x1080 30000/1001 yuv420p -profile:v high -flags +ildct+ilme \
    -x264-params "force-cfr=1:8x8dct=1:interlaced=1"
sps high-1920x1080-30p-vfr 1920x1080 30 yuv420p -profile:v high -x264-params "force-cfr=0:8x8dct=1"
sps high-1280x720-50p-hrd-vbr 1280x720 50 yuv420p -profile:v high \
    -x264-params "force-cfr=1:8x8dct=1:nal-hrd=vbr:vbv-maxrate=6000:vbv-bufsize=6000"
sps high-1280x720-59.94p-hrd-cbr 1280x720 60000/1001 yuv420p -profile:v high -b:v 4M \
    -x264-params "force-cfr=1:8x8dct=1:nal-hrd=cbr:vbv-maxrate=4000:vbv-bufsize=4000"
sps high-1280x720-60p-full-range 1280x720 60 yuv420p -profile:v high -color_range pc -color_primaries bt709 \
    -color_trc bt709 -colorspace bt709 -x264-params "force-cfr=1:8x8dct=1"
sps high-854x480-30p 854x480 30 yuv420p -profile:v high -x264-params "force-cfr=1:8x8dct=1"
sps high-1440x1080-25p-sar 1440x1080 25 yuv420p -profile:v high -vf setsar=4/3 -x264-params "force-cfr=1:8x8dct=1"
sps high-720x576-25p-extended-sar 720x576 25 yuv420p -profile:v high -vf setsar=64/45 \
    -x264-params "force-cfr=1:8x8dct=1"
sps high-640x360-10p-scaling-lists 640x360 10 yuv420p -profile:v high -x264-params "force-cfr=1:8x8dct=1:cqm=jvt"
sps high-2048x1080-24p 2048x1080 24 yuv420p -profile:v high -x264-params "force-cfr=1:8x8dct=1"
sps high10-1920x1080-50p-bt2020 1920x1080 50 yuv420p10le -profile:v high10 -color_primaries bt2020 \
    -color_trc bt2020-10 -colorspace bt2020nc -x264-params "force-cfr=1"
sps high10-3840x2160-50p-pq 3840x2160 50 yuv420p10le -profile:v high10 -color_primaries bt2020 \
    -color_trc smpte2084 -colorspace bt2020nc -x264-params "force-cfr=1"
sps high10-3840x2160-59.94p-hlg 3840x2160 60000/1001 yuv420p10le -profile:v high10 -color_primaries bt2020 \
    -color_trc arib-std-b67 -colorspace bt2020nc -x264-params "force-cfr=1"
sps high10-1920x1080-25p-bt2020-full-range 1920x1080 25 yuv420p10le -profile:v high10 -color_range pc \
    -color_primaries bt2020 -colorspace bt2020nc -x264-params "force-cfr=1"
sps high422-1920x1080-25i-mbaff 1920x1080 25 yuv422p10le -profile:v high422 -flags +ildct+ilme \
    -x264-params "force-cfr=1:interlaced=1"
sps high422-1366x766-30p 1366x766 30 yuv422p -profile:v high422 -x264-params "force-cfr=1"
sps high444-1919x1079-60p 1919x1079 60 yuv444p -profile:v high444 -x264-params "force-cfr=1"
sps high-gray-200x100-25p 200x100 25 gray -profile:v high -x264-params "force-cfr=1"
