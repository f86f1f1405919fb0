#!/bin/sh
# A report in a headless browser: it opens without a network, zooms, reads a value, says nothing amiss.
#     report_test.sh TU SOURCES
set -u
tu=$1
sources=$2
browser=
for name in chromium-headless-shell chromium chromium-browser google-chrome; do
    command -v "$name" >/dev/null && { browser=$name; break; }
done
[ -n "$browser" ] || { echo "skipped: no browser (apt-get install chromium-headless-shell)"; exit 77; }
[ -e /usr/share/javascript/dygraphs/dygraph.min.js ] ||
    { echo "skipped: no plotting library (apt-get install libjs-dygraphs)"; exit 77; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
failed=0

sed -e 's/^duration.*/duration = "20m"/' -e '/^\[\[event\]\]/,$d' \
    "$sources/scenarios/ptp-g82751.toml" >"$dir/run.toml"
cat >>"$dir/run.toml" <<'END'
[[event]]
at = "10m"
do = "oscillator.step"
ppb = 0.5
[[check]]
check = "clock"
name = "never </script> so"
at = "15m"
is = "FAILURE"
END
"$tu" run "$dir/run.toml" --quiet --out "$dir/out" >/dev/null 2>&1
[ -s "$dir/out/report.html" ] || { echo "no report"; exit 1; }

# The person's hands: drag over a plot, point at it, press the button that shows everything.
cat "$dir/out/report.html" - >"$dir/played.html" <<'END'
<script>
const said = [];
const say = (what, is) => said.push((is ? 'ok ' : 'WRONG ') + what);
try {
    const chart = charts.find(c => c.title.startsWith('Frequency error'));
    const other = charts.find(c => c !== chart);
    const canvas = chart.graph.canvas_, box = canvas.getBoundingClientRect();
    const mouse = (type, share, target) => (target || canvas).dispatchEvent(new MouseEvent(type, {
        bubbles: true, cancelable: true, view: window, button: 0,
        clientX: box.left + 120 + share * (box.width - 140), clientY: box.top + box.height / 2,
        screenX: 100 + share * box.width, screenY: 100}));
    const width = c => c.graph.xAxisRange()[1] - c.graph.xAxisRange()[0];
    const whole = width(chart);
    say('several plots', charts.length >= 5);
    say('the events are marked', RUN.units[0].events.some(e => e[1] === 'event'));
    say('a delay each way', RUN.units[0].delays.length > 0 && RUN.units[0].delays[0].down.some(v => v > 0));
    const pdv = charts.find(c => c.title.startsWith('Delay variation'));
    say('delay variation beside its limit', pdv && pdv.rows.some(r => r[1] > 0 && r[3] > r[1]));
    mouse('mousedown', 0.5); mouse('mousemove', 0.6, document); mouse('mousemove', 0.75, document);
    mouse('mouseup', 0.75, document);
    say('zoomed', width(chart) < 0.5 * whole);
    say('the others too', Math.abs(width(other) - width(chart)) < 1e-6);
    const [low, high] = chart.graph.yAxisRange();
    say('scaled to what is locked', high - low < 100);
    mouse('mousemove', 0.6);
    const read = chart.graph.maindiv_.parentElement.querySelector('.read').textContent;
    say('a value is read: ' + read, /\d:\d\d:\d\d.*true -?\d.*ppb/.test(read));
    const states = charts[0].graph.maindiv_.parentElement.querySelector('.read').textContent;
    say('and the state then: ' + states, /clock [A-Z_]+LOCKED/.test(states));
    document.getElementById('unzoom').click();
    say('everything again', Math.abs(width(chart) - whole) < 1);
    say('failed checks first', document.querySelector('.verdict').textContent.includes('1 of 1 checks fail'));
    say('a text stays text', document.body.textContent.includes('never </' + 'script> so'));
} catch (e) {
    said.push('WRONG ' + e);
}
document.title = said.join('; ');
</script>
END
timeout 120 "$browser" --headless --no-sandbox --disable-gpu --window-size=1280,1000 --enable-logging=stderr \
    --v=0 --user-data-dir="$dir/profile" --host-resolver-rules='MAP * ~NOTFOUND' \
    --dump-dom "file://$dir/played.html" \
    >"$dir/dom" 2>"$dir/console" </dev/null
said=$(sed -n 's/.*<title>\(.*\)<\/title>.*/\1/p' "$dir/dom" | head -1)
echo "$said" | tr ';' '\n'
case $said in *"ok several plots"*) ;; *) echo "the page wasn't played"; failed=1 ;; esac
case $said in *WRONG*) failed=1 ;; esac
grep 'CONSOLE' "$dir/console" && { echo "that is what the page said on its console"; failed=1; }
exit $failed
