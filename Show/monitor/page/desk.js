// The desk: the monitor's page with controls.
import './monitor.js';
import './deskBar.js';
import './deskPlay.js';
import { fillControls } from './deskControls.js';
import { byId, make } from './dom.js';
import { draw, map } from './map.js';
import { onState } from './deskLink.js';

document.title = 'Orvel desk';
document.querySelector('h1').textContent = 'Orvel desk';
map.setAttribute('role', 'application');
map.setAttribute('aria-label', 'The scene from above. n and p choose the next and the previous part; ' +
  'the arrow keys move it, Page Up and Page Down lift and lower it, brackets turn it, Shift takes larger ' +
  'steps. Escape chooses nothing; then the arrow keys move the view. Plus and minus zoom, 0 shows all. ' +
  'Space plays the next cue, Enter pauses, comma and full stop go 5 seconds back and forward.');
byId('hint').textContent =
  'Drag an emitter or the listener, or choose one. Values set by hand hold until they are released.';
const item = make('li');
item.append(make('span', 'sign held'), 'set by hand');
document.querySelector('.bar .legend').append(item);

onState(draw);
fillControls();
