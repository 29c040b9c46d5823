// The lanes and what is done to them; drawing.js comes before this.

// Lanes: {name, share, below, draw(context, height), ticks} -----------------------------------

// share   of the window's height; height in pixels with what is below, once there is a layout
// below   pixels under the frame
// ticks   [share of the height, text]
const lanes = [];
const redrawn = {pending: false};

function redraw() {
    if (redrawn.pending) return;
    redrawn.pending = true;
    requestAnimationFrame(() => {
        redrawn.pending = false;
        for (const lane of lanes) drawLane(lane);
        if (pointed.lane && !element("pointer").hidden) readOut();
    });
}

function drawLane(lane) {
    const scale = window.devicePixelRatio || 1;
    const canvas = lane.canvas, full = element("lanes").clientWidth;
    const wide = Math.round(full * scale), high = Math.round(lane.height * scale);
    if (canvas.width !== wide || canvas.height !== high) {
        [canvas.width, canvas.height] = [wide, high];
    }
    const context = canvas.getContext("2d");
    const height = lane.height - lane.below;
    context.setTransform(scale, 0, 0, scale, 0, 0);
    context.clearRect(0, 0, full, lane.height);
    context.save();
    context.beginPath();
    context.rect(LEFT, 0, width(), height);
    context.clip();
    lane.draw(context, height);
    context.restore();
    context.strokeStyle = context.fillStyle = "#222";
    context.strokeRect(LEFT - 0.5, 0.5, width() + 1, height - 1);
    context.font = "11px system-ui, sans-serif";
    context.textBaseline = "middle";
    context.textAlign = "right";
    let above = Infinity;  // where the last text stands
    for (const [share, text] of lane.ticks) {
        const y = Math.min(Math.max(height * (1 - share), 6), height - 6);
        context.fillRect(LEFT - 4, height * (1 - share), 4, 1);
        if (above - y < 11) continue;
        context.fillText(text, LEFT - 5, y);
        above = y;
    }
    context.save();
    context.font = "10px system-ui, sans-serif";
    context.translate(9, height / 2);
    context.rotate(-Math.PI / 2);
    context.textAlign = "center";
    context.fillText(lane.name, 0, 0);
    context.restore();
    if (lane === lanes[lanes.length - 1]) drawTimes(context, height);
}

function drawTimes(context, top) {
    const seconds = (view.end - view.start) * 80 / width();  // between ticks, at least
    const power = 10 ** Math.floor(Math.log10(seconds));
    const step = power * [1, 2, 5, 10].find((factor) => factor * power >= seconds);
    const digits = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
    context.textAlign = "center";
    for (let k = Math.ceil(view.start / step); k * step <= view.end; ++k) {
        context.fillRect(xOf(k * step), top, 1, 4);
        context.fillText((k * step).toFixed(digits) + " s", xOf(k * step), top + 12);
    }
}

function addLane(name, share, ticks, draw, options = {}) {
    const canvas = document.createElement("canvas");
    const lane = {name, share, ticks, draw, canvas, below: 6, ...options};
    canvas.setAttribute("role", "img");
    canvas.setAttribute("aria-label", name);
    element("lanes").append(canvas);
    lanes.push(lane);
    return lane;
}

// Lowest and highest sample of every block, so that an hour is drawn at once.
const BLOCK = 256;
for (const sound of data.sounds) {
    const count = Math.ceil(sound.samples.length / BLOCK);
    sound.low = new Int16Array(count);
    sound.high = new Int16Array(count);
    for (let block = 0; block < count; ++block) {
        const part = sound.samples.subarray(block * BLOCK, (block + 1) * BLOCK);
        sound.low[block] = Math.min(...part);
        sound.high[block] = Math.max(...part);
    }
}

function drawWave(context, height, sound, start, end, colour) {
    const peak = data.peak * 32768 * 1.05;
    const yOf = (value) => height / 2 * (1 - value / peak);
    const perPixel = (end - start) * data.fs / width();
    context.fillStyle = context.strokeStyle = colour;
    if (perPixel <= 1) {
        context.beginPath();
        for (let i = Math.max(Math.floor(start * data.fs), 0);
            i <= Math.min(Math.ceil(end * data.fs), sound.samples.length - 1); ++i) {
            context.lineTo(LEFT + (i / data.fs - start) / (end - start) * width(),
                yOf(sound.samples[i]));
        }
        context.stroke();
        return;
    }
    const coarse = perPixel > 4 * BLOCK;
    const [lows, highs] = coarse ? [sound.low, sound.high] : [sound.samples, sound.samples];
    const rate = coarse ? data.fs / BLOCK : data.fs;
    for (let x = 0; x < width(); ++x) {
        const begin = Math.floor((start + x / width() * (end - start)) * rate);
        const stop = Math.min(Math.floor((start + (x + 1) / width() * (end - start)) * rate) + 1,
            lows.length);
        let low = 32767, high = -32768;
        for (let i = begin; i < stop; ++i) {
            low = Math.min(low, lows[i]);
            high = Math.max(high, highs[i]);
        }
        if (stop > begin) {
            context.fillRect(LEFT + x, yOf(high), 1, Math.max(yOf(low) - yOf(high), 1));
        }
    }
}

const melTicks = [200, 500, 1000, 2000, 3000, 4000, 6000, 8000]
    .filter((hz) => hz <= data.fs / 2).map((hz) => [melShare(hz), `${hz / 1000} k`]);

// The whole recording; what is shown of it is white.
addLane("all", 34, [], (context, height) => {
    context.fillStyle = "#E3E3E3";
    context.fillRect(LEFT, 0, width(), height);
    context.fillStyle = "white";
    const left = LEFT + view.start / data.seconds * width();
    const right = LEFT + view.end / data.seconds * width();
    context.fillRect(left, 0, Math.max(right - left, 2), height);
    drawWave(context, height, data.sounds[0], 0, data.seconds, "#777");
}, {whole: true, below: 8});
for (const [number, sound] of data.sounds.entries()) {
    addLane(number ? "resynth" : "wave", number ? 64 : 56, [[0.5, "0"]], (context, height) => {
        drawWave(context, height, sound, view.start, view.end, "#555");
    }, {sound});
}
for (const image of data.images) {
    addLane(image.name, 215, melTicks, (context, height) => {
        drawImage(context, image, height);
        if (!image.lines || !element("lines").checked) return;
        const yOf = (hz) => height * (1 - melShare(hz));
        for (const track of data.mvf) {
            drawTrack(context, smoothed(points(track)), yOf, track.colour, true);
        }
        for (const track of data.f0) {
            const list = points(track);
            const crowded = list.length && list[0].high !== undefined
                && (view.end - view.start) / data.shift > 2 * width();
            drawTrack(context, crowded ? smoothed(list) : list, yOf, track.colour, true);
        }
    }, {image});
}
if (data.mvf.length) {
    const ticks = [0, 0.5, 1].map((share) => [share, `${share * data.fs / 2000} k`]);
    addLane("max. voiced", 105, ticks, (context, height) => {
        for (const track of data.mvf) {
            drawTrack(context, points(track), (hz) => height * (1 - 2 * hz / data.fs),
                track.colour);
        }
    });
}
if (data.f0.length) {
    const [low, high] = data.f0limits;
    const share = (hz) => Math.log(hz / low) / Math.log(high / low);
    addLane("f0", 120, data.f0ticks.map((hz) => [share(hz), `${hz}`]), (context, height) => {
        context.fillStyle = "#E3E3E3";
        for (const [begin, end] of data.unvoiced) {
            if (end >= view.start && begin <= view.end) {
                context.fillRect(xOf(begin), 0, xOf(end) - xOf(begin), height);
            }
        }
        for (const track of data.f0) {
            drawTrack(context, points(track), (hz) => height * (1 - share(hz)), track.colour);
        }
    });
}
lanes[lanes.length - 1].below = 20;  // for the times

// The lanes share the height of the window, as long as that leaves them legible.
function layout() {
    const shares = lanes.reduce((sum, lane) => sum + lane.share, 0);
    const fixed = lanes.reduce((sum, lane) => sum + lane.below, 0);
    const free = window.innerHeight - element("lanes").offsetTop - 16 - fixed;
    const unit = Math.min(Math.max(free / shares, 0.6), 1.6);
    for (const lane of lanes) {
        lane.height = Math.round(lane.share * unit) + lane.below;
        lane.canvas.style.height = lane.height + "px";
    }
    redraw();
}

// Pointer -----------------------------------------------------------------------------------------

function valueAt(track, t) {
    const value = track.values[Math.round(t / data.shift)];
    return value === undefined || Number.isNaN(value) ? "-" : `${value.toFixed(1)} Hz`;
}

// Where the pointer is: a lane, and pixels in it.
const pointed = {lane: null, x: 0, y: 0};

function readOut() {
    const {lane, x, y} = pointed;
    const t = Math.min(timeAt(x), data.seconds);
    const words = [`${t.toFixed(3)} s`];
    const share = 1 - y / (lane.height - lane.below);
    if (lane.image && share >= 0 && share <= 1) {
        words.push(`at ${hzOf(share).toFixed(0)} Hz: `
            + data.images.map((image) => levelText(image, t, share)).join(", "));
    }
    for (const track of data.f0) words.push(`${track.name} ${valueAt(track, t)}`);
    for (const track of data.mvf) words.push(`${track.name} ${valueAt(track, t)}`);
    const sample = data.sounds[0].samples[Math.round(t * data.fs)];
    if (sample !== undefined) words.push(`sample ${(sample / 32768).toFixed(4)}`);
    element("values").textContent = words.join(" · ");
}

for (const lane of lanes) {
    lane.canvas.addEventListener("pointermove", (event) => {
        if (drag.lane) return;
        const inside = event.offsetX >= LEFT && event.offsetX <= LEFT + width() && !lane.whole;
        element("pointer").hidden = !inside;
        if (!inside) return;
        element("pointer").style.left = event.offsetX + "px";
        Object.assign(pointed, {lane, x: event.offsetX, y: event.offsetY});
        readOut();
    });
    lane.canvas.addEventListener("pointerleave", () => { element("pointer").hidden = true; });
    lane.canvas.addEventListener("wheel", (event) => {
        event.preventDefault();
        const length = view.end - view.start;
        if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
            const move = (event.deltaX || event.deltaY) / width() * length;
            show(view.start + move, view.end + move);
        } else {
            zoom(1.002 ** event.deltaY, timeAt(event.offsetX));
        }
    }, {passive: false});
    lane.canvas.addEventListener("pointerdown", (event) => {
        if (event.button !== 0) return;
        lane.canvas.setPointerCapture(event.pointerId);
        Object.assign(drag, {lane, x: event.offsetX, start: view.start, end: view.end});
        if (lane.whole) centre(event.offsetX);
    });
    lane.canvas.addEventListener("dblclick", () => show(0, data.seconds));
}

const drag = {lane: null};
function centre(x) {
    const t = (x - LEFT) / width() * data.seconds, half = (view.end - view.start) / 2;
    show(t - half, t + half);
}
element("lanes").addEventListener("pointermove", (event) => {
    if (!drag.lane) return;
    if (drag.lane.whole) {
        centre(event.offsetX);
        return;
    }
    const move = (drag.x - event.offsetX) / width() * (drag.end - drag.start);
    show(drag.start + move, drag.end + move);
});
for (const name of ["pointerup", "pointercancel"]) {
    element("lanes").addEventListener(name, () => { drag.lane = null; });
}

// Sound: plays what is shown ----------------------------------------------------------------------

const player = {context: null, source: null, began: 0, start: 0, end: 0, button: null};

function stop() {
    if (player.source) {
        player.source.onended = null;
        player.source.stop();
    }
    player.source = null;
    element("playing").hidden = true;
    for (const sound of data.sounds) sound.button.textContent = "▶ " + sound.name;
}

function play(sound) {
    const again = player.sound === sound && player.source;
    stop();
    if (again) return;
    player.context = player.context || new AudioContext();
    player.context.resume();
    if (!sound.buffer) {
        sound.buffer = player.context.createBuffer(1, sound.samples.length, data.fs);
        sound.buffer.getChannelData(0).set(Float32Array.from(sound.samples, (s) => s / 32768));
    }
    Object.assign(player, {sound, source: player.context.createBufferSource(), start: view.start,
        end: view.end, began: player.context.currentTime});
    player.source.buffer = sound.buffer;
    player.source.connect(player.context.destination);
    player.source.onended = stop;
    player.source.start(0, view.start, view.end - view.start);
    sound.button.textContent = "■ " + sound.name;
    follow();
}

function follow() {
    if (!player.source) return;
    const x = xOf(player.start + player.context.currentTime - player.began);
    element("playing").hidden = !(x >= LEFT && x <= LEFT + width());
    element("playing").style.left = x + "px";
    requestAnimationFrame(follow);
}

for (const sound of data.sounds) {
    sound.button = document.createElement("button");
    sound.button.addEventListener("click", () => play(sound));
    element("sounds").append(sound.button, " ");
}
stop();

// Controls ----------------------------------------------------------------------------------------

element("closer").addEventListener("click", () => zoom(0.5));
element("wider").addEventListener("click", () => zoom(2));
element("all").addEventListener("click", () => show(0, data.seconds));
element("lines").addEventListener("change", redraw);
for (const track of [...data.f0, ...data.mvf]) {
    const entry = document.createElement("span"), line = document.createElement("i");
    line.style.background = track.colour;
    entry.append(line, track.name);
    element("legend").append(entry);
}
document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const move = (view.end - view.start) / 4;
    const action = {
        "+": () => zoom(0.5), "=": () => zoom(0.5), "-": () => zoom(2),
        "Home": () => show(0, data.seconds),
        "ArrowLeft": () => show(view.start - move, view.end - move),
        "ArrowRight": () => show(view.start + move, view.end + move),
        " ": () => play(player.sound || data.sounds[0]),
    }[event.key];
    if (!action || (event.key === " " && event.target.matches("button, input"))) return;
    event.preventDefault();
    action();
});
window.addEventListener("resize", layout);
layout();
