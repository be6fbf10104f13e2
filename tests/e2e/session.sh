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

# Waits up to $1 seconds for the command after it to succeed.
wait_for() {
  local seconds=$1
  shift
  for _ in $(seq $((seconds * 10))); do
    "$@" && return 0
    sleep 0.1
  done
  echo "gave up after $seconds s waiting for: $*" >&2
  return 1
}

registry=/Library/Preferences/com.olvara.korad.plist

# Prints the first value under <key>$1</key> in the registry file: its text, or
# true or false.
registry_value() {
  awk -v key="<key>$1</key>" 'index($0, key) {
      getline
      if ($0 ~ /<true\/>/) print "true"; else if ($0 ~ /<false\/>/) print "false"
      else { gsub(/^[ \t]*<[^>]*>|<\/[^>]*>[ \t]*$/, ""); print }
      exit
    }' "$registry" 2>/dev/null
}

# A registry that records a check made just now ($recorded_check), so that only
# force-check starts one.
record_recent_check() {
  recorded_check=$(date '+%Y-%m-%d %H:%M:%S %z')
  cat > "$registry" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>LastKoraCheckDate</key><string>$recorded_check</string>
</dict></plist>
PLIST
}

# True once a check has been recorded after the one whose date text is $1.
checked_since() { [[ $(registry_value LastKoraCheckDate) != "$1" ]]; }

registry_version_is() { [[ $(registry_value lastKnownVersion) == "$1" ]]; }

# Seconds from now until the stored update's "waitUntilDate".
seconds_to_wait() { echo $(( $(date -d "$(registry_value waitUntilDate)" +%s) - $(date +%s) )); }
postponed() { [[ -n $(registry_value waitUntilDate) ]] && (( $(seconds_to_wait) > 0 )); }

# Registers application $1 for product $2: a bundle at version 1.0 in /Applications.
register_app() {
  local app=/Applications/$1.app
  mkdir -p "$app/Contents/Resources"
  cat > "$app/Contents/Info.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>$1</string>
<key>CFBundleVersion</key><string>1.0</string>
</dict></plist>
PLIST
  "$KORACTL" register "$1" "INST-$1" "$2" 1.0 "$app" Olvara
}

# True once the daemon's log holds at least $1 lines with $2.
log_has() { (( $(grep -c -- "$2" "$log" || true) >= $1 )); }
