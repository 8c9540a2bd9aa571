// Small pictures that are drawn many times in each frame: painted once, then only copied.
import { ratio } from './canvas.js';

const kMaxSprites = 1000;
const sprites = new Map();

/// Call it when a colour has changed.
export const forgetSprites = () => sprites.clear();

/// Draws the picture `key` with its middle at a place. `size`: its width and height; `paint` draws it,
/// around the place 0, 0.
export function stamp(context, key, x, y, [width, height], paint) {
  let sprite = sprites.get(key);
  if (!sprite || sprite.ratio !== ratio) {
    const canvas = new OffscreenCanvas(Math.ceil(width * ratio), Math.ceil(height * ratio));
    const own = canvas.getContext('2d');
    own.scale(ratio, ratio);
    own.translate(width / 2, height / 2);
    paint(own);
    if (sprites.size >= kMaxSprites) sprites.clear();
    sprite = { ratio, image: canvas.transferToImageBitmap() };
    sprites.set(key, sprite);
  }
  // At whole pixels a copy needs no filter.
  const { image } = sprite;
  context.drawImage(image, Math.round((x - width / 2) * ratio) / ratio,
    Math.round((y - height / 2) * ratio) / ratio, image.width / ratio, image.height / ratio);
}
