#!/bin/bash
# The program's exit codes: 0 all checks hold, 1 one fails, 2 input that can't be used, told in one line.
#     cli.sh TU
set -u
tu=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
failed=0
expect() {   # code, what, arguments of tu
    code=$1; what=$2; shift 2
    "$tu" "$@" >"$dir/out" 2>"$dir/err"
    got=$?
    if [ $got -ne "$code" ]; then echo "$what: exit code $got, wanted $code"; cat "$dir/err"; failed=1; fi
    if [ "$code" -eq 2 ] && [ "$(wc -l <"$dir/err")" -ne 1 ]; then
        echo "$what: not one line"; cat "$dir/err"; failed=1
    fi
}
told() { grep -qE -- "$1" "$dir/${3:-out}" || { echo "$2"; failed=1; }; }   # pattern, what is wrong, file
unit='duration = "20s"
[[unit]]
name = "tu1"
'
check='[[check]]
check = "reaches"
state = "'
printf '%s%sWARMUP"\n' "$unit" "$check" >"$dir/good.toml"
printf '%s%sFREQUENCY_LOCKED"\n' "$unit" "$check" >"$dir/fails.toml"
printf '%scolour = "red"\n' "$unit" >"$dir/bad.toml"
printf '1.0\nx\n' >"$dir/bad.txt"
sed 's/20s/6s/' "$dir/good.toml" >"$dir/paced.toml"
expect 0 "a check that holds" run "$dir/good.toml" --summary "$dir/s.json"
told '"pass": true' "the summary doesn't tell the check" s.json
expect 1 "a check that fails" run "$dir/fails.toml" --quiet
expect 2 "an unknown key" run "$dir/bad.toml"
told 'bad.toml:4: ' "no file and line" err
expect 2 "no such file" run "$dir/none.toml"
expect 2 "a bad series" run "$dir/good.toml" --oscillator "$dir/bad.txt"
told 'bad.txt:2: ' "no file and line of the series" err
expect 2 "a folder that isn't there" run "$dir/good.toml" --summary "$dir/none/s.json"
expect 2 "a folder as a summary" run "$dir/good.toml" --summary "$dir"
expect 2 "a seed that is no number" run "$dir/good.toml" --seed one
expect 2 "seeds that are none" run "$dir/good.toml" --seeds 5..1
expect 2 "seed and seeds" run "$dir/good.toml" --seed 1 --seeds 1..2
expect 0 "a summary on standard output" run "$dir/good.toml" --summary -
[ "$(head -1 "$dir/out")" = "{" ] || { echo "not the summary alone"; failed=1; }
expect 1 "two scenarios, one fails" run "$dir/good.toml" "$dir/fails.toml" --summary "$dir/both.json" \
    --junit "$dir/both.xml"
told '<failure message=' "no failure" both.xml
told '"runs": \[' "one is missing" both.json
expect 0 "three seeds" run "$dir/good.toml" --seeds 1..2,7 --jobs 2 --summary "$dir/seeds.json"
[ "$(grep -c '"seed":' "$dir/seeds.json")" -eq 3 ] || { echo "not three runs"; failed=1; }
expect 0 "another seed" run "$dir/good.toml" --seed 7 --quiet --summary "$dir/seven.json"
expect 0 "a summary and itself" compare "$dir/s.json" "$dir/s.json"
expect 1 "two seeds" compare "$dir/s.json" "$dir/seven.json"
told '^! seed: 1 -> 7 \(\+6, ' "the difference isn't told"
expect 0 "within a tolerance" compare "$dir/seeds.json" "$dir/seeds.json" --relative 0.1
expect 2 "no summary" compare "$dir/s.json" "$dir/good.toml"
expect 2 "no such summary" compare "$dir/s.json" "$dir/none.json"
if /usr/bin/python3 -c 'import jsonschema' 2>/dev/null; then
    "$(dirname "$0")/../../scripts/validate-summary" "$dir/"{s,both,seeds}.json || failed=1
fi
expect 2 "no such option" run "$dir/good.toml" --colour red
expect 2 "no command"
expect 2 "a command that isn't there" bogus
told "'bogus' is none of run, " "the commands aren't named" err
expect 2 "nobody serves it" status "$dir/none.sock"
expect 2 "no such state" wait "$dir/none.sock" LOCKED
expect 2 "no time" wait "$dir/none.sock" WARMUP --within soon
expect 2 "a status that can't be served" run "$dir/good.toml" --status /proc/none
expect 2 "metrics that can't be served" run "$dir/good.toml" --metrics 70000
printf 'until 30s\nwhy\nquit\n' >"$dir/typed"
expect 1 "the console ends with the run's code" run "$dir/fails.toml" --shell <"$dir/typed"
told '^WARMUP for 0:00:' "no answer to why"
printf 'until 10m\nwhy\nquit\n' >"$dir/typed"
expect 0 "a reference that is locked and not measured" \
    run "$(dirname "$0")/../../scenarios/ptp-software-stamps.toml" --shell --speed 0 <"$dir/typed"
told '^RNT_TIME_LOCKED for .*no measurement is taken: PDV' "not told that nothing is measured"
expect 0 "left before its end" run "$dir/fails.toml" --shell </dev/null
"$tu" run "$dir/fails.toml" --speed 1 --status "$dir/sock" --out "$dir/ended" --summary "$dir/ended.json" \
    --quiet &
run=$!
expect 0 "a state" wait "$dir/sock" WARMUP --timeout 1m
expect 0 "a status" status "$dir/sock"
told '^tu1 at 0:00:' "no status of the unit"
expect 1 "a state that doesn't come" wait "$dir/sock" FREQUENCY_LOCKED --timeout 1s
kill -TERM $run
wait $run
got=$?
[ $got -eq 143 ] || { echo "a run that is ended: exit code $got, wanted 143"; failed=1; }
[ -s "$dir/ended.json" ] && [ -s "$dir/ended/report.html" ] || { echo "nothing at its end"; failed=1; }
"$tu" run "$dir/fails.toml" --speed 1 --status "$dir/sock" --summary "$dir/hung.json" --quiet &
run=$!
expect 0 "a state of the next" wait "$dir/sock" WARMUP --timeout 1m
kill -HUP $run
wait $run
[ $? -eq 129 ] && [ -s "$dir/hung.json" ] || { echo "a closed terminal takes the summary along"; failed=1; }
"$tu" run "$dir/good.toml" --seeds 1..900000 --jobs 1 --summary "$dir/cut.json" >"$dir/told" &
run=$!
until grep -q '^ok' "$dir/told"; do sleep 0.1; done
kill -TERM $run
wait $run
[ $? -eq 143 ] && [ -s "$dir/cut.json" ] || { echo "many runs that are ended leave nothing"; failed=1; }
expect 2 "no such interface" run "$dir/good.toml" --ptp-if nowhere0
told '^nowhere0: there is no such network interface$' "the interface isn't named" err
expect 2 "nobody to put on it" run "$dir/good.toml" --ptp-if gm1=lo
expect 2 "one step and no master" run "$dir/good.toml" --ptp-if lo --one-step
expect 2 "an interface at another speed" run "$dir/good.toml" --ptp-if lo --speed 10
printf '# heading\n$GPGGA,1\r\n$GPXYZ,1*00\r\n' >"$dir/good.log"
: >"$dir/empty.log"
expect 0 "a log of a receiver" nmea "$dir/good.log" --verbose
told 'NMEA address GPXYZ not handled' "no reason of the refusal"
expect 2 "an empty log" nmea "$dir/empty.log"
expect 2 "no such log" nmea "$dir/none.log"
told 'none.log: ' "the log isn't named" err
expect 2 "a folder as a log" nmea "$dir"
expect 2 "noise out of range" nmea "$dir/good.log" --noise 2
printf '\324\303\262\241\002\000\004\000\000\000\000\000\000\000\000\000\377\377\000\000' >"$dir/head"
{ cat "$dir/head"; printf '\001\000\000\000'; } >"$dir/good.pcap"
{ cat "$dir/good.pcap"; printf '\001\000'; } >"$dir/cut.pcap"
{ cat "$dir/head"; printf '\161\000\000\000'; } >"$dir/other.pcap"
expect 0 "a capture" pcap "$dir/good.pcap" --summary
told 'good.pcap: 0 packets' "no table of the capture"
expect 2 "no capture" pcap "$dir/good.log"
expect 2 "a capture cut off" pcap "$dir/cut.pcap"
told 'cut.pcap: cut off' "the capture isn't told to be cut" err
expect 2 "a capture of another link" pcap "$dir/other.pcap"
expect 2 "no such capture" pcap "$dir/none.pcap"
expect 2 "a folder that can't be made" run "$dir/good.toml" --out /proc/none
expect 0 "a capture as JSON" pcap "$dir/good.pcap" --json
expect 0 "a capture without a unit" pcap "$dir/good.pcap" --no-unit --out "$dir/shows"
[ -s "$dir/shows/report.html" ] || { echo "no report of the capture"; failed=1; }
expect 2 "a receiver's line that isn't there" run "$dir/good.toml" --gps-tty "$dir/none"
expect 2 "a pulse without its receiver" run "$dir/good.toml" --pps /dev/null
expect 0 "the version" --version
told '^tu [0-9]+\.' "no version"
mkdir "$dir/manual"
expect 0 "the manual" --manual "$dir/manual"
for command in run nmea pcap soak; do
    page=$(gzip -dc "$dir/manual/tu-$command.1.gz")
    "$tu" $command --help | grep -oE '^  (-h,)?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sed 's/-/\\-/g' |
        while read -r option; do
            echo "$page" | grep -qF -- "$option" || echo "$command $option"
        done >"$dir/missing"
    [ -s "$dir/missing" ] && { echo "not in the manual:"; cat "$dir/missing"; failed=1; }
done
bash -n "$dir/manual/tu.bash" || failed=1
# Stopped for two seconds, a run beside the host's clock has lost nothing of it, with a console or without.
if "$tu" run "$dir/good.toml" --ptp-if lo --quiet --shell </dev/null >"$dir/out" 2>"$dir/err"; then
    for shell in "" --shell; do
        began=$(date +%s)
        # The console stays at the end until its input does: by then all of the run has to be over.
        sleep 7 | "$tu" run "$dir/paced.toml" --ptp-if lo --quiet $shell --summary "$dir/paced.json" \
            >"$dir/out" 2>&1 &
        pid=$!
        sleep 2
        kill -STOP "$pid"; sleep 2; kill -CONT "$pid"
        while kill -0 "$pid" 2>/dev/null; do sleep 0.1; done
        took=$(($(date +%s) - began))
        [ $took -le 9 ] || { echo "6 s of run took $took s of the host's ($shell)"; failed=1; }
        told '"virtual_seconds": 6' "time was lost ($shell)" paced.json
        told '"over_100ms": [1-9]' "the pause isn't told ($shell)" paced.json
    done
fi
expect 0 "a long run" soak --hours 0.2 --seed 5 --save "$dir/drawn.toml"
expect 0 "what it drew" run "$dir/drawn.toml" --quiet
expect 2 "a long run of no length" soak --hours 0
exit $failed
