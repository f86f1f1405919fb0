// The plots of a report: one time axis for all of them, zoomed together, read together. RUN holds the run.
'use strict';

const charts = [];                     // all with the shared time axis
let isWhole = false;                   // whole ranges, or those that the locked clock needs

const COLOURS = ['#2458a6', '#b9770e', '#1e8449', '#7d3c98', '#b03a2e', '#2e6f8e', '#666666', '#c2185b'];
const LIMIT_COLOUR = '#b03a2e';
const STATE_COLOURS = [
    [/TIME_LOCKED|FRAME_LOCKED|TRUETIME/, '#a9d8b0'], [/OFFSET_LOCKED|TIMELOCKED/, '#cfe8c6'],
    [/HOLDOVER/, '#f7dc8a'], [/LOCKED/, '#d7ead0'], [/FAILURE|LOSS|ILLEGAL|DEGRADED/, '#f1a9a0'],
    [/WARMUP|DRIFTING|SYNCH|RUNNING|START/, '#e3e3e3']];

const pad = n => String(n).padStart(2, '0');
function clockText(seconds) {
    const s = Math.max(seconds, 0), whole = Math.floor(s);
    const rest = s - whole > 0.0005 ? (s - whole).toFixed(3).slice(1) : '';
    return Math.floor(whole / 3600) + ':' + pad(Math.floor(whole / 60) % 60) + ':' + pad(whole % 60) + rest;
}

function timeTicks(from, to, pixels) {
    const steps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400];
    const least = (to - from) / Math.max(pixels / 90, 1);
    const step = steps.find(s => s >= least) || Math.ceil(least / 86400) * 86400;
    const ticks = [];
    for (let v = Math.ceil(from / step) * step; v <= to; v += step) ticks.push({v: v, label: clockText(v)});
    return ticks;
}

const numberText = v => v === 0 ? '0' : Math.abs(v) < 1e-4 || Math.abs(v) >= 1e7 ? v.toExponential(4)
                                                                             : String(+v.toPrecision(7));
/// What a series says at a point: its value, and its band where it has one.
function valueText(value) {
    if (value === null || value === undefined) return '';
    if (!Array.isArray(value)) return numberText(value);
    const [low, mid, high] = value;
    if (mid === null) return '';
    return numberText(mid) + (high > low ? ' \u00b1 ' + numberText((high - low) / 2) : '');
}

function stateAt(changes, t) {
    let name = '';
    for (const [since, is] of changes) {
        if (since > t) break;
        name = is;
    }
    return name;
}

// ---- ranges -----------------------------------------------------------------------------------

/// The spread that matters: of the locked clock if it ever is, without the few values that would hide the
/// rest.
function rangeOf(chart, from, to) {
    const values = [], all = [];
    for (let i = 0; i < chart.rows.length; ++i) {
        const row = chart.rows[i];
        if (row[0] < from || row[0] > to) continue;
        for (let k = 1; k < row.length; ++k) {
            if (!isWhole && chart.wide && chart.wide[k - 1]) continue;
            for (const v of Array.isArray(row[k]) ? row[k] : [row[k]]) {
                if (v === null || !isFinite(v)) continue;
                all.push(v);
                if (!chart.good || chart.good[i]) values.push(v);
            }
        }
    }
    const used = isWhole || values.length < 20 ? all : values;
    if (used.length === 0) return null;
    used.sort((a, b) => a - b);
    const at = share => used[Math.round(share * (used.length - 1))];
    let low = at(0), high = at(1);
    if (!isWhole) {
        const inner = at(0.995) - at(0.005);
        if (high - low > 3 * inner && inner > 0) {
            low = at(0.005);
            high = at(0.995);
        }
    }
    const margin = (high - low) * 0.12 || Math.abs(high) * 1e-6 || 1;
    return [low - margin, high + margin];
}

function showAll(window, except) {
    for (const c of charts) {
        if (c === except && window === null) continue;
        const [from, to] = window || RUN.span;
        const options = {dateWindow: [from, to]};
        if (!c.lanes) options.valueRange = rangeOf(c, from, to);
        c.graph.updateOptions(options);
    }
}

function select(row, except) {
    for (const c of charts)
        if (c !== except) row === null ? c.graph.clearSelection() : c.graph.setSelection(row);
}

// ---- drawing ----------------------------------------------------------------------------------

function underlay(chart) {
    return (canvas, area, graph) => {
        const x = t => graph.toDomXCoord(t);
        canvas.save();
        canvas.beginPath();
        canvas.rect(area.x, area.y, area.w, area.h);
        canvas.clip();
        if (chart.lanes) drawLanes(canvas, area, graph, chart.lanes);
        else for (const [from, to] of chart.unit.holdovers.map(h => h.span)) {
            canvas.fillStyle = 'rgba(247, 220, 138, 0.28)';
            canvas.fillRect(x(from), area.y, x(to) - x(from), area.h);
        }
        for (const failed of RUN.failed.filter(f => f.unit === chart.unit.name)) {
            const width = x(failed.to) - x(failed.from), isMoment = width < 4;
            canvas.fillStyle = isMoment ? 'rgba(176, 58, 46, 0.55)' : 'rgba(176, 58, 46, 0.12)';
            canvas.fillRect(x(failed.from) - (isMoment ? 2 : 0), area.y, isMoment ? 4 : width, area.h);
        }
        canvas.font = '10px sans-serif';
        chart.unit.events.forEach((e, i) => {
            if (e[1] !== 'event') return;
            const at = Math.round(x(e[0])) + 0.5;
            canvas.strokeStyle = 'rgba(120, 40, 140, 0.55)';
            canvas.setLineDash([3, 3]);
            canvas.beginPath();
            canvas.moveTo(at, area.y);
            canvas.lineTo(at, area.y + area.h);
            canvas.stroke();
            canvas.setLineDash([]);
            canvas.fillStyle = '#7d3c98';
            if (!chart.lanes) canvas.fillText(e[3], at + 2, area.y + 9);
        });
        for (const limit of chart.limits || []) {
            const y = graph.toDomYCoord(limit);
            canvas.strokeStyle = LIMIT_COLOUR;
            canvas.beginPath();
            canvas.moveTo(area.x, y);
            canvas.lineTo(area.x + area.w, y);
            canvas.stroke();
        }
        canvas.restore();
    };
}

function drawLanes(canvas, area, graph, lanes) {
    const height = area.h / lanes.length;
    lanes.forEach((lane, i) => {
        const top = area.y + i * height + 2;
        lane.changes.forEach(([t, name], k) => {
            const end = k + 1 < lane.changes.length ? lane.changes[k + 1][0] : RUN.span[1];
            const from = Math.max(graph.toDomXCoord(t), area.x);
            const to = Math.min(graph.toDomXCoord(end), area.x + area.w);
            if (to <= from) return;
            const colour = STATE_COLOURS.find(c => c[0].test(name));
            canvas.fillStyle = colour ? colour[1] : '#cfdcf0';
            canvas.fillRect(from, top, to - from, height - 4);
            canvas.fillStyle = '#222';
            canvas.font = '11px sans-serif';
            if (canvas.measureText(name).width < to - from - 6)
                canvas.fillText(name, from + 4, top + height / 2 + 2);
            if (from > area.x) {
                canvas.fillStyle = '#fff';
                canvas.fillRect(from - 0.5, top, 1, height - 4);
            }
        });
    });
}

/// A figure with its title and a line that tells what is under the pointer.
function figure(parent, title) {
    const box = document.createElement('figure');
    const head = document.createElement('figcaption');
    const name = document.createElement('b'), read = document.createElement('span');
    const plot = document.createElement('div');
    name.textContent = title;
    read.className = 'read';
    head.append(name, read);
    plot.className = 'plot';
    box.append(head, plot);
    parent.append(box);
    return {plot, read};
}

function legendOf(chart, read) {
    return data => {
        const t = data.x;
        const shown = [];
        if (t !== undefined) shown.push((chart.xText || clockText)(t));
        if (chart.lanes) {
            if (t !== undefined)
                for (const lane of chart.lanes) shown.push(lane.name + ' ' + stateAt(lane.changes, t));
        } else {
            const row = t === undefined ? null : chart.rows.find(r => r[0] === t);
            data.series.forEach((s, k) => {
                const value = row ? valueText(row[k + 1]) : '';
                if (value !== '' || t === undefined) {
                    const text = s.label + (value !== '' ? ' ' + value + ' ' + chart.of : '');
                    shown.push('<i style="background:' + s.color + '"></i>' + text);
                }
            });
        }
        read.innerHTML = shown.join(' &nbsp; ');
        return '';
    };
}

function draw(parent, chart) {
    const isUnitTold = chart.lanes || chart.title.endsWith(' ' + chart.of);
    const {plot, read} = figure(parent, chart.title + (chart.of && !isUnitTold ? ', ' + chart.of : ''));
    if (chart.height) plot.style.height = chart.height + 'px';
    const axes = {
        x: {axisLabelWidth: 90, axisLabelFormatter: v => v,
            ticker: (from, to, pixels) => timeTicks(from, to, pixels)},
        y: {axisLabelWidth: 96, pixelsPerLabel: 24, valueFormatter: v => v,
            axisLabelFormatter: v => numberText(v)}};
    if (chart.lanes)
        axes.y.ticker = () =>
            chart.lanes.map((lane, i) => ({v: chart.lanes.length - i - 0.5, label: lane.name}));
    if (chart.log)
        axes.x = {logscale: true, axisLabelFormatter: v => numberText(v), ticker: Dygraph.numericTicks};
    else if (chart.xText)
        axes.x = {axisLabelFormatter: v => numberText(v), ticker: Dygraph.numericTicks};
    const last = chart.rows.length - 1;
    const [from, to] = last >= 0 ? [chart.rows[0][0], chart.rows[last][0]] : RUN.span;
    const options = {
        labels: chart.labels, colors: COLOURS, axes: axes, customBars: !!chart.bars,
        strokeWidth: chart.lanes ? 0 : 1.3,
        legend: 'always', labelsDiv: document.createElement('div'), legendFormatter: legendOf(chart, read),
        gridLineColor: '#e4e4e4', axisLineColor: '#888', connectSeparatedPoints: !!chart.connected,
        drawPoints: !!chart.points, pointSize: 2, highlightCircleSize: 3, fillAlpha: 0.18,
        drawGrid: !chart.lanes,
        series: chart.series || {}, animatedZooms: false};
    if (chart.lanes) options.valueRange = [0, chart.lanes.length];
    if (chart.log) {
        options.logscale = true;
        chart.graph = new Dygraph(plot, chart.rows, options);
        return;
    }
    if (chart.xText) {
        options.valueRange = rangeOf(chart, from, to);
        options.underlayCallback = underlay(chart);
        chart.graph = new Dygraph(plot, chart.rows, options);
        return;
    }
    Object.assign(options, {
        dateWindow: RUN.span, underlayCallback: underlay(chart),
        zoomCallback: (a, b) => {
            const window = a <= RUN.span[0] && b >= RUN.span[1] ? null : [a, b];
            showAll(window || RUN.span);
        },
        highlightCallback: (event, x, points, row) => select(row, chart),
        unhighlightCallback: () => select(null, chart)});
    if (!chart.lanes) options.valueRange = rangeOf(chart, from, to);
    chart.graph = new Dygraph(plot, chart.rows, options);
    charts.push(chart);
}

// ---- what is drawn of a unit ------------------------------------------------------------------

const column = (unit, name) => unit.columns[name];
const isThere = values => values && values.some(v => v !== null);

function timeChart(unit, title, of, series, more) {
    const shown = series.filter(s => isThere(s.values));
    if (shown.length === 0) return null;
    const bars = shown.some(s => s.band);
    const cell = (s, i) => {
        const v = s.values[i];
        if (!bars) return v;
        const d = s.band && s.band[i] !== null ? s.band[i] : 0;
        return v === null ? [null, null, null] : [v - d, v, v + d];
    };
    const rows = RUN.t.map((t, i) => [t, ...shown.map(s => cell(s, i))]);
    return Object.assign({unit, title, of, bars, rows, labels: ['time', ...shown.map(s => s.label)],
                          good: column(unit, 'good'), wide: shown.map(s => s.wide)}, more || {});
}

/// The true error, and the unit's estimate of it with its band and, faint, what its references may add: that is
/// wide, and doesn't count for the plot's range.
function estimateChart(unit, title, of, truth, estimate, more) {
    const band = column(unit, estimate + '_band'), bound = column(unit, estimate + '_bound');
    const values = column(unit, 'estimated_' + estimate);
    const reach = band.map((b, i) => b === null || bound[i] === null ? null : b + bound[i]);
    const withBound = 'and its references';
    const series = {[withBound]: {strokeWidth: 0, color: '#888888'}};
    return timeChart(unit, title, of,
                     [{label: 'true', values: truth}, {label: "unit's estimate", values, band},
                      {label: withBound, values: values.map((v, i) => reach[i] === null ? null : v), band: reach,
                       wide: true}], {series, ...more});
}

function unitCharts(unit) {
    const c = name => column(unit, name);
    const list = [{unit, title: 'States', lanes: unit.lanes, height: 26 * unit.lanes.length + 24,
                   rows: RUN.t.map(t => [t, -10]), labels: ['time', 'state'], of: ''}];
    list.push(timeChart(unit, 'Time error of each scored stretch about its mean', 'ns',
                        [{label: 'true', values: c('about_mean')}]));
    list.push(timeChart(unit, 'Time error since the first lock' +
                              (unit.isStepped ? ', steps of the counter taken out' : ''), 'ns',
                        [{label: 'true', values: c('time_error')}]));
    list.push(estimateChart(unit, 'Counter against true time, and what the unit takes it for, with its band',
                            'ns', c('gps_time_error'), 'time', {good: c('time_locked')}));
    list.push(timeChart(unit, 'Counter against that of ' + unit.leader, 'ns',
                        [{label: 'true', values: c('follow_error')}], {good: c('time_locked')}));
    list.push(estimateChart(unit, 'Frequency error, and what the unit takes it for, with its band', 'ppb',
                            c('freq_error'), 'freq', {}));
    const delays = [];
    for (const d of unit.delays) {
        delays.push({label: 'from ' + d.peer, values: d.down}, {label: 'to ' + d.peer, values: d.up});
    }
    list.push(timeChart(unit, 'Packet delays, true', 'us', delays, {connected: true, good: null}));
    list.push(timeChart(unit, 'Delay variation as the unit measures it, and its limit', 'ns',
                        [{label: 'down', values: c('pdv_down')}, {label: 'up', values: c('pdv_up')},
                         {label: 'limit', values: c('pdv_limit')}],
                        {good: null, series: {limit: {color: LIMIT_COLOUR, strokePattern: [6, 3]}}}));
    list.push(timeChart(unit, 'Phase of the loop, as the unit measures it', 'ns',
                        [{label: 'local less reference', values: c('loop_phase')}]));
    list.push(timeChart(unit, 'Divider against where it ends', 'ppb',
                        [{label: 'divider', values: c('divider')}]));
    list.push(timeChart(unit, 'Oscillator temperature, sensor', 'V',
                        [{label: 'sensor', values: c('temperature')}]));
    return list.filter(chart => chart !== null);
}

function holdoverChart(unit) {
    const held = unit.holdovers.filter(h => h.rows.length > 1);
    if (held.length === 0) return null;
    const rows = [];
    held.forEach((h, k) => h.rows.forEach(([t, v]) => {
        const row = [t / 3600, ...held.map(() => null)];
        row[k + 1] = v;
        rows.push(row);
    }));
    rows.sort((a, b) => a[0] - b[0]);
    const most = Math.max(...held.map(h => Math.max(...h.rows.map(r => Math.abs(r[1])))));
    const share = (most / RUN.holdoverLimit_ns * 100).toFixed(1);
    return {unit: {holdovers: [], events: [], name: ''}, connected: true, of: 'ns', rows,
            title: 'Time error in holdover, hours since the loss: at most ' + most.toFixed(1) + ' ns, ' +
                   share + ' % of the limit of ' + RUN.holdoverLimit_ns + ' ns',
            labels: ['hours', ...held.map(h => 'from ' + clockText(h.span[0]))],
            xText: v => v.toFixed(3) + ' h',
            limits: [RUN.holdoverLimit_ns, -RUN.holdoverLimit_ns]};
}

function deviationChart(unit, d) {
    const taus = [...new Set(d.curves.flatMap(c => c.points.map(p => p[0])))].sort((a, b) => a - b);
    const maps = d.curves.map(c => new Map(c.points));
    const rows = taus.map(tau => [tau, ...maps.map(m => m.has(tau) && m.get(tau) > 0 ? m.get(tau) : null)]);
    const series = {};
    d.curves.forEach((c, k) => {
        series[c.name] = k === 0 ? {strokeWidth: 2, drawPoints: true, color: '#222222'}
                                 : {strokePattern: [5, 3]};
    });
    return {unit, title: d.title + ' over observation interval in s', of: 'ns', rows, series, log: true,
            connected: true, labels: ['tau', ...d.curves.map(c => c.name)], xText: v => numberText(v) + ' s'};
}

function listEvents(parent, unit) {
    const box = document.createElement('details');
    const head = document.createElement('summary');
    head.textContent = unit.events.length + ' events';
    const table = document.createElement('table');
    for (const [t, kind, text, number] of unit.events) {
        const row = table.insertRow();
        row.insertCell().textContent = number;
        const at = row.insertCell();
        at.textContent = clockText(t);
        at.className = 'at';
        at.onclick = () => showAll([Math.max(t - 600, RUN.span[0]), Math.min(t + 1800, RUN.span[1])]);
        row.insertCell().textContent = kind;
        row.insertCell().textContent = text;
    }
    box.open = unit.events.length <= 40;
    box.append(head, table);
    parent.append(box);
}

function drawAll() {
    const page = document.getElementById('plots');
    for (const unit of RUN.units) {
        const section = document.createElement('section');
        section.innerHTML = '<h2></h2>';
        section.firstChild.textContent = 'Unit ' + unit.name;
        page.append(section);
        for (const chart of unitCharts(unit)) draw(section, chart);
        const holdover = holdoverChart(unit);
        if (holdover) draw(section, holdover);
        for (const d of unit.deviations) draw(section, deviationChart(unit, d));
        listEvents(section, unit);
    }
    if (RUN.units.length > 1) {
        const section = document.createElement('section');
        section.innerHTML = '<h2>All units</h2>';
        page.prepend(section);
        const events = RUN.units.flatMap(
            u => u.events.map(([t, kind, text, number]) => [t, kind, text, u.name + ' ' + number]));
        const over = (title, of, name) => timeChart(
            {...RUN.units[0], holdovers: [], events}, title, of,
            RUN.units.map(u => ({label: u.name, values: column(u, name)})),
            {good: RUN.t.map((t, i) => RUN.units.every(u => column(u, 'good')[i]))});
        for (const chart of [over('Time error since each lock, steps of the counters taken out', 'ns',
                                  'time_error'),
                             over('Time error of each scored stretch about its mean', 'ns', 'about_mean'),
                             over('Frequency error', 'ppb', 'freq_error')])
            if (chart) draw(section, chart);
    }
    document.getElementById('whole').onchange = event => {
        isWhole = event.target.checked;
        showAll(charts.length ? charts[0].graph.xAxisRange() : null);
    };
    document.getElementById('unzoom').onclick = () => showAll(RUN.span);
    for (const link of document.querySelectorAll('[data-from]'))
        link.onclick = () => {
            const from = +link.dataset.from, to = +link.dataset.to, margin = Math.max((to - from) * 0.1, 300);
            showAll([Math.max(from - margin, RUN.span[0]), Math.min(to + margin, RUN.span[1])]);
        };
}

drawAll();
