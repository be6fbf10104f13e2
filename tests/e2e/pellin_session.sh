# Sourced after session.sh by the helper's sessions; PELLIN_HELPER, FAKE_SYSTEMD, TARGET come from the test.

# Prints the unique name that owns $1 on the bus, or nothing.
owner() {
  gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.GetNameOwner "$1" 2>/dev/null | sed -n "s/^('\(.*\)',)$/\1/p"
}

# Runs its arguments every 0.1 s until they succeed; fails after 10 s.
wait_until() {
  for _ in $(seq 100); do
    "$@" && return 0
    sleep 0.1
  done
  echo "timed out waiting for: $*" >&2
  return 1
}

has_name_owner() {
  [[ -n $(owner "$1") ]]
}

# True when com.olvara.Korad has an owner other than $1.
new_owner_since() {
  local now
  now=$(owner com.olvara.Korad)
  [[ -n $now && $now != "$1" ]]
}

# Starts $TARGET as korad.service through the fake manager and waits until it serves.
start_daemon_unit() {
  "$FAKE_SYSTEMD" korad.service "$TARGET" "$OUT" >>"$log" 2>&1 &
  wait_until has_owner
}

# The real helper, acting on $TARGET; extra options follow the defaults.
start_helper() {
  "$PELLIN_HELPER" --target "$TARGET" "$@" >>"$OUT/helper.log" 2>&1 &
  helper_pid=$!
  wait_until has_name_owner com.olvara.PellinHelper
}

# Calls the helper with two GVariant texts and prints the one-line answer; $as_user prefixes the call.
install_daemon() {
  { ${as_user:-} gdbus call --system --dest com.olvara.PellinHelper --object-path /com/olvara/PellinHelper \
      --method com.olvara.PellinHelper.installDaemonWithIdentifier_andBinary "$@" 2>&1 || true; } |
    head -n 1
}

# Whether the daemon's current process runs the file now at $TARGET.
daemon_runs_target() {
  cmp -s "/proc/$(cat "$OUT/main-pid")/exe" "$TARGET"
}
