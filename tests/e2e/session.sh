# Sourced by every end-to-end session inside korad-sandbox. KORAD and KORACTL
# name the binaries, OUT a host folder the test reads afterwards.
mkdir -p /Library/Logs /Library/Preferences
log=/Library/Logs/korad.out.log

has_owner() {
  dbus-send --system --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner string:com.olvara.Korad 2>/dev/null | grep -q 'boolean true'
}

# Starts korad in the background, as systemd would, and waits until it serves.
start_korad() {
  "$KORAD" "$@" >>"$log" 2>&1 &
  korad_pid=$!
  for _ in $(seq 100); do
    has_owner && return 0
    kill -0 "$korad_pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "korad did not come up" >&2
  return 1
}

# Stops korad with SIGTERM and prints its exit status.
stop_korad() {
  kill -TERM "$korad_pid"
  local status=0
  wait "$korad_pid" || status=$?
  echo "$status"
}
