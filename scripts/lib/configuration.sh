# shellcheck shell=bash
# The one writer of the library's configuration file in shell. Sourced (not run) by the scripts
# that run the tools against a server of their own: soak, screenshot-agent, check-consumer.

# write_configuration DIRECTORY BASE_URL CLIENT_SECRET CLIENT_ID APP_GROUP BUNDLE_ID
# Writes DIRECTORY/FeXOService-Info.plist (DIRECTORY made when missing), replacing any file
# there: the five settings as the strings of an XML property list, in this order, each escaped
# for XML. Values are single lines of text.
write_configuration() {
  if [ $# -ne 6 ]; then
    echo "write_configuration: DIRECTORY BASE_URL CLIENT_SECRET CLIENT_ID APP_GROUP BUNDLE_ID" >&2
    return 2
  fi
  local directory=$1 value
  local -a escaped=()
  shift
  for value in "$@"; do
    escaped+=("$(printf '%s' "$value" | sed -e 's/&/\&amp;/g' -e 's/</\&lt;/g' -e 's/>/\&gt;/g')")
  done
  mkdir -p "$directory"
  cat >"$directory/FeXOService-Info.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>FEXO_BASE_URL</key><string>${escaped[0]}</string>
  <key>CLIENT_SECRET</key><string>${escaped[1]}</string>
  <key>CLIENT_ID</key><string>${escaped[2]}</string>
  <key>APP_GROUP</key><string>${escaped[3]}</string>
  <key>BUNDLE_ID</key><string>${escaped[4]}</string>
</dict>
</plist>
PLIST
}
