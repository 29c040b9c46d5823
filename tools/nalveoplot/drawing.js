"use strict";
// The recording, its spectrogram and envelopes as images with a palette, its tracks and sounds, in
// lanes on one time axis. Nothing is fetched: all data stand in this page.
//
// Symbols: t seconds from the start of the recording; x, y CSS pixels of a lane.

const data = JSON.parse(document.getElementById("data").textContent);
const LEFT = 62, RIGHT = 12;  // margins of every lane, pixels
const element = (name) => document.getElementById(name);

function bytes(base64) {
    const text = atob(base64);
    const values = new Uint8Array(text.length);
    for (let i = 0; i < text.length; ++i) values[i] = text.charCodeAt(i);
    return values;
}

for (const track of [...data.f0, ...data.mvf]) {
    track.values = new Float32Array(bytes(track.data).buffer);
}
for (const sound of data.sounds) {
    sound.samples = new Int16Array(bytes(sound.data).buffer);
}

// What is shown, in seconds. No more than the recording, no less than a hundredth of a second.
const view = {start: data.view[0], end: data.view[1]};

function show(start, end) {
    const length = Math.min(Math.max(end - start, 0.01), data.seconds);
    const middle = (start + end) / 2;
    view.start = Math.min(Math.max(middle - length / 2, 0), data.seconds - length);
    view.end = view.start + length;
    redraw();
}

function zoom(factor, t = (view.start + view.end) / 2) {
    const length = Math.min(Math.max((view.end - view.start) * factor, 0.01), data.seconds);
    const share = (t - view.start) / (view.end - view.start);
    show(t - share * length, t + (1 - share) * length);
}

const width = () => element("lanes").clientWidth - LEFT - RIGHT;
const timeAt = (x) => view.start + (x - LEFT) / width() * (view.end - view.start);
const xOf = (t) => LEFT + (t - view.start) / (view.end - view.start) * width();

// Height above the bottom of a mel scale, 0 to 1 (O'Shaughnessy, 1987), and back.
const melShare = (hz) => Math.log1p(hz / 700) / Math.log1p(data.fs / 1400);
const hzOf = (share) => 700 * Math.expm1(share * Math.log1p(data.fs / 1400));

// Tracks ------------------------------------------------------------------------------------------

function middle(values) {
    values.sort((a, b) => a - b);
    const half = values.length >> 1;
    return values.length % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

// What is shown of a track: {x, low, mid, high} for each frame, or for each pixel if frames are
// more; NaN where unvoiced.
function points(track) {
    const values = track.values, shift = data.shift, list = [];
    const first = Math.max(Math.floor(view.start / shift) - 1, 0);
    const last = Math.min(Math.ceil(view.end / shift) + 1, values.length - 1);
    if (last - first < width()) {
        for (let i = first; i <= last; ++i) {
            list.push({x: xOf(i * shift), low: values[i], mid: values[i], high: values[i]});
        }
        return list;
    }
    for (let x = LEFT; x < LEFT + width(); ++x) {
        const begin = Math.ceil(timeAt(x) / shift);
        const end = Math.min(Math.ceil(timeAt(x + 1) / shift), values.length);
        const found = Array.from(values.subarray(begin, end)).filter(Number.isFinite);
        const mid = found.length ? middle(found) : NaN;  // sorts them
        list.push({x: x + 0.5, low: found.length ? found[0] : NaN, mid,
            high: found.length ? found[found.length - 1] : NaN});
    }
    return list;
}

// Running median and mean over ten pixels: over a spectrogram, a track must not hide what it is
// about, and the maximum voiced frequency jumps.
function smoothed(list) {
    const spacing = list.length > 1 ? list[1].x - list[0].x : 10;
    const half = Math.round(5 / spacing);
    if (half < 1) return list;
    const run = (values, from, what) => values.map((value, i) => {
        const around = values.slice(Math.max(i - half, 0), i + half + 1);
        const finite = around.filter(Number.isFinite);
        return from(value, finite, around) ? what(finite) : NaN;
    });
    const rough = run(list.map((point) => point.mid),
        (value, finite, around) => 2 * finite.length >= around.length, middle);
    const fine = run(rough, (value) => Number.isFinite(value),
        (finite) => finite.reduce((sum, value) => sum + value, 0) / finite.length);
    return list.map((point, i) => ({x: point.x, low: NaN, mid: fine[i], high: NaN}));
}

function drawTrack(context, list, yOf, colour, edge = false) {
    context.save();
    context.fillStyle = context.strokeStyle = colour;
    context.globalAlpha = 0.3;
    for (const point of list) {
        if (point.high > point.low) {
            context.fillRect(point.x - 0.5, yOf(point.high), 1, yOf(point.low) - yOf(point.high));
        }
    }
    context.globalAlpha = 1;
    context.beginPath();
    let previous = NaN;
    list.forEach((point, i) => {
        if (!Number.isFinite(point.mid)) {
            previous = NaN;
            return;
        }
        const lone = !Number.isFinite(previous)
            && !(i + 1 < list.length && Number.isFinite(list[i + 1].mid));
        if (lone) context.rect(point.x - 0.5, yOf(point.mid) - 0.5, 1, 1);
        else if (Number.isFinite(previous)) context.lineTo(point.x, yOf(point.mid));
        else context.moveTo(point.x, yOf(point.mid));
        previous = point.mid;
    });
    context.lineJoin = "round";
    if (edge) {
        context.lineWidth = 3;
        context.strokeStyle = "white";
        context.stroke();
        context.strokeStyle = colour;
    }
    context.lineWidth = 1.4;
    context.stroke();
    context.restore();
}

// Images ------------------------------------------------------------------------------------------

// The coarsest level that still has a column for each pixel.
function levelFor(image) {
    const wanted = width() / (view.end - view.start);
    return image.levels.findLast((level) => 1 / level.step >= wanted) ?? image.levels[0];
}

function picture(tile) {
    if (!tile.picture) {
        tile.picture = new Image();
        tile.picture.onload = redraw;
        tile.picture.src = "data:image/png;base64," + tile.data;
    }
    return tile.picture.complete && tile.picture.naturalWidth ? tile.picture : null;
}

function drawImage(context, image, height) {
    const level = levelFor(image);
    context.imageSmoothingEnabled = true;
    for (const tile of level.tiles) {
        // A column is centred on its time.
        const left = xOf((tile.first - 0.5) * level.step);
        const right = xOf((tile.first + tile.columns - 0.5) * level.step);
        if (right < LEFT || left > LEFT + width()) continue;
        const shown = picture(tile);
        if (shown) context.drawImage(shown, left, 0, right - left, height);
    }
}

const pixel = document.createElement("canvas");
pixel.width = pixel.height = 1;
const pixelContext = pixel.getContext("2d", {willReadFrequently: true});
const shades = new Map(data.palette.map((colour, i) => [colour, i]));

// Level in dB of an image at a time and a share of its height, or null while it is being decoded.
function levelAt(image, t, share) {
    const level = image.levels[0];
    const column = Math.min(Math.max(Math.round(t / level.step), 0), level.columns - 1);
    const tile = level.tiles[Math.floor(column / data.tile)];
    const shown = picture(tile);
    if (!shown) return null;
    const row = Math.min(Math.max(Math.floor((1 - share) * data.rows), 0), data.rows - 1);
    pixelContext.drawImage(shown, column - tile.first, row, 1, 1, 0, 0, 1, 1);
    const [red, green, blue] = pixelContext.getImageData(0, 0, 1, 1).data;
    const shade = shades.get(red * 65536 + green * 256 + blue);
    if (shade === undefined) return null;
    const [low, high] = data.limits;
    return low + (high - low) * shade / (data.palette.length - 1);
}

function levelText(image, t, share) {
    const level = levelAt(image, t, share);
    if (level === null) return `${image.name} ...`;
    const sign = level <= data.limits[0] ? "≤ " : level >= data.limits[1] ? "≥ " : "";
    return `${image.name} ${sign}${level.toFixed(0)} dB`;
}
