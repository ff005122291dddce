# Sourced by the run scripts: makes sure an X display is usable, starting
# Xvfb when none is. Sets DISPLAY and XVFB_PID (empty if none was started).
XVFB_PID=""
panoview_display_ok() {
  [ -n "${DISPLAY:-}" ] && command -v xdpyinfo >/dev/null 2>&1 && xdpyinfo >/dev/null 2>&1
}
if ! panoview_display_ok; then
  for n in 99 98 97 96 95 94 93; do
    if [ ! -e "/tmp/.X11-unix/X$n" ] && [ ! -e "/tmp/.X$n-lock" ]; then
      Xvfb ":$n" -screen 0 1600x1200x24 +bs -nolisten tcp >/tmp/panoview-xvfb-$n.log 2>&1 &
      XVFB_PID=$!
      export DISPLAY=":$n"
      for _ in $(seq 1 50); do
        if xdpyinfo >/dev/null 2>&1; then break; fi
        sleep 0.1
      done
      break
    fi
  done
  if ! panoview_display_ok; then
    echo "could not start Xvfb" >&2
  fi
fi
stop_xvfb() { if [ -n "$XVFB_PID" ]; then kill "$XVFB_PID" 2>/dev/null || true; fi; }
