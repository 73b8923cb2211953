// The two palettes. They are applied as CSS custom properties on the root, so
// the numbers checked for contrast in the tests are the ones on screen.

export type ThemeName = 'light' | 'dark';

export interface Palette {
  panel: string; // panel background
  raised: string; // cards inside the panel
  line: string; // hairlines
  text: string;
  muted: string; // secondary text
  faint: string; // tertiary text, still readable
  accent: string; // links, focus ring, selection
  onAccent: string;
  allow: string; // the Allow button
  onAllow: string;
  danger: string; // failures, Deny text
  warn: string; // attention mark, waiting mood
  onWarn: string;
  working: string;
  done: string;
  idle: string;
  mono: string; // background of command details
  slots: string[]; // the nine session colours
}

export const PALETTES: Record<ThemeName, Palette> = {
  dark: {
    panel: '#0c0d10',
    raised: '#17191e',
    line: '#2a2e36',
    text: '#f4f5f7',
    muted: '#b2b8c3',
    faint: '#8f96a3',
    accent: '#8ab4ff',
    onAccent: '#0b1630',
    allow: '#4ade80',
    onAllow: '#052e16',
    danger: '#ff8f87',
    warn: '#fbbf24',
    onWarn: '#231500',
    working: '#7cb8ff',
    done: '#5ee08f',
    idle: '#9aa1ad',
    mono: '#0f1115',
    slots: ['#ff8a7a', '#ffb35c', '#f2d54b', '#7fdc8f', '#4fd6c8', '#73b7ff', '#ad93ff', '#ff8fc0', '#d2ab84'],
  },
  light: {
    panel: '#ffffff',
    raised: '#f3f4f6',
    line: '#e1e4e8',
    text: '#101217',
    muted: '#454c59',
    faint: '#5b6270',
    accent: '#1f5fd1',
    onAccent: '#ffffff',
    allow: '#157a3d',
    onAllow: '#ffffff',
    danger: '#b4231a',
    warn: '#b45309',
    onWarn: '#ffffff',
    working: '#1d5fc7',
    done: '#137a3b',
    idle: '#5b6270',
    mono: '#f6f7f9',
    slots: ['#d43d2a', '#c25e00', '#957500', '#2a8a3e', '#0f8378', '#1f6fd6', '#7149e0', '#c9307a', '#8c6239'],
  },
};

export function resolveTheme(geoTheme: string, pref: string, systemDark: boolean): ThemeName {
  if (geoTheme === 'light' || geoTheme === 'dark') return geoTheme;
  if (pref === 'light' || pref === 'dark') return pref;
  return systemDark ? 'dark' : 'light';
}

function channel(c: number): number {
  const s = c / 255;
  return s <= 0.03928 ? s / 12.92 : ((s + 0.055) / 1.055) ** 2.4;
}

export function luminance(hex: string): number {
  const h = hex.replace('#', '');
  const n = parseInt(h.length === 3 ? h.split('').map((x) => x + x).join('') : h, 16);
  return 0.2126 * channel((n >> 16) & 255) + 0.7152 * channel((n >> 8) & 255) + 0.0722 * channel(n & 255);
}

/** WCAG contrast ratio between two colours, 1 … 21. */
export function contrast(a: string, b: string): number {
  const [x, y] = [luminance(a), luminance(b)].sort((p, q) => q - p);
  return (x + 0.05) / (y + 0.05);
}

const kebab = (k: string) => k.replace(/[A-Z]/g, (c) => '-' + c.toLowerCase());

export function themeVars(name: ThemeName): Record<string, string> {
  const p = PALETTES[name];
  const vars: Record<string, string> = {};
  for (const [k, v] of Object.entries(p)) {
    if (k === 'slots') (v as string[]).forEach((c, i) => (vars[`--slot-${i}`] = c));
    else vars[`--${kebab(k)}`] = v as string;
  }
  return vars;
}

export function slotColor(index: number): string {
  return `var(--slot-${((index % 9) + 9) % 9})`;
}
