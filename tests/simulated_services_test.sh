#!/bin/sh
# What the simulated camera adds to the program, end to end: each RTSP channel streams what its
# encoder file holds and a new size set through the media service, and a pull already waiting
# receives an event.
. "$(dirname "$0")/common.sh"
command -v ffprobe >/dev/null || fail "ffprobe missing (Debian package ffmpeg; tools/setup.sh installs it)"
[ -x "$top/build/rtsp-server" ] || fail "build/rtsp-server not built (libgstrtspserver-1.0-dev missing?)"
start_camera
ready

# --- RTSP: each channel delivers what its encoder file holds.
probe() {  # probe CHANNEL: codec,width,height of the stream
    for attempt in 1 2 3; do
        result=$(timeout 30 ffprobe -v error -rtsp_transport tcp -select_streams v:0 \
            -show_entries stream=codec_name,width,height -of csv=p=0 "rtsp://127.0.0.1:$rtsp_port/live/ch$1" 2>/dev/null)
        [ -n "$result" ] && break
    done
    echo "$result"
}
for channel in 1 2 3 4; do
    file="$root/tmp/onvif/VideoEncoder$channel.VEncoder"
    codec=$(sed -n 's/^Encoding=//p' "$file")
    [ "$codec" = JPEG ] && codec=mjpeg || codec=h264
    want="$codec,$(sed -n 's/^Resolution.Width=//p' "$file"),$(sed -n 's/^Resolution.Height=//p' "$file")"
    got=$(probe $channel)
    [ "$got" = "$want" ] || fail "channel $channel delivers '$got', its encoder file says '$want'"
done
grep -q '^Encoding=JPEG' "$root/tmp/onvif/VideoEncoder4.VEncoder" || fail "no JPEG channel to check"

# A new size through the media service reaches new sessions (the restart program runs).
set_encoder=$(soap "<trt:SetVideoEncoderConfiguration><trt:Configuration token=\"VideoEncoder2\">\
<tt:Name>VideoEncoder2</tt:Name><tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding>\
<tt:Resolution><tt:Width>640</tt:Width><tt:Height>360</tt:Height></tt:Resolution><tt:Quality>60</tt:Quality>\
<tt:RateControl><tt:FrameRateLimit>30</tt:FrameRateLimit><tt:EncodingInterval>1</tt:EncodingInterval>\
<tt:BitrateLimit>2048</tt:BitrateLimit></tt:RateControl><tt:H264><tt:GovLength>30</tt:GovLength>\
<tt:H264Profile>Main</tt:H264Profile></tt:H264><tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type>\
<tt:IPv4Address>239.0.0.2</tt:IPv4Address></tt:Address><tt:Port>5562</tt:Port><tt:TTL>1</tt:TTL>\
<tt:AutoStart>false</tt:AutoStart></tt:Multicast><tt:SessionTimeout>PT60S</tt:SessionTimeout></trt:Configuration>\
<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoEncoderConfiguration>")
echo "$set_encoder" | grep -q 'SetVideoEncoderConfigurationResponse' || fail "SetVideoEncoderConfiguration: $set_encoder"
grep -q 'h264/restart_stream.cgi' "$root/camera_calls.log" || fail "restart call not recorded"
got=$(probe 2)
[ "$got" = "h264,640,360" ] || fail "after SetVideoEncoderConfiguration channel 2 delivers '$got'"

# --- Events: a pull already waiting on the event file receives the motion.
subscription=$(pull_point)
pull "$subscription" | grep -q 'PropertyOperation="Initialized"' || fail "first pull without initial states"
pull "$subscription" > "$work/pulled" &
pending=$!
more_cleanup() { kill "$pending" 2>/dev/null; }
# The pull is waiting on the event file once the service has extended the
# subscription; the event goes in after that or the next pull takes it.
sleep 1
ONVIF_ROOT="$root" "$top/tools/sim/event" motion on || fail "event tool failed"
wait $pending
grep -q 'PropertyOperation="Changed"' "$work/pulled" && grep -q 'Name="motion" Value="true"' "$work/pulled" \
    || fail "motion not pulled: $(cat "$work/pulled")"
[ "$(ONVIF_ROOT="$root" $shm get EVENT_FILE_BUSY_WORD)" = 0 ] || fail "event file left busy"
stop_camera
echo PASS
