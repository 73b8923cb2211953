import { describe, expect, it } from 'vitest';
import { PALETTES, contrast, resolveTheme, type ThemeName } from '../src/theme';

describe.each(['dark', 'light'] as ThemeName[])('%s palette contrast', (name) => {
  const p = PALETTES[name];
  const grounds = { panel: p.panel, raised: p.raised };

  it.each(Object.entries(grounds))('text colours read at 4.5:1 on %s', (_, bg) => {
    for (const fg of [p.text, p.muted, p.faint, p.danger, p.working, p.done, p.idle, p.warn, p.accent]) {
      expect(contrast(fg, bg), `${fg} on ${bg}`).toBeGreaterThanOrEqual(4.5);
    }
  });

  it('button labels read at 4.5:1 on their fills', () => {
    expect(contrast(p.onAllow, p.allow)).toBeGreaterThanOrEqual(4.5);
    expect(contrast(p.onWarn, p.warn)).toBeGreaterThanOrEqual(4.5);
    expect(contrast(p.onAccent, p.accent)).toBeGreaterThanOrEqual(4.5);
  });

  it('the nine session colours stand out at 3:1 and differ from each other', () => {
    expect(new Set(p.slots).size).toBe(9);
    for (const c of p.slots) for (const bg of Object.values(grounds)) expect(contrast(c, bg), c).toBeGreaterThanOrEqual(3);
  });
});

describe('theme choice', () => {
  it('prefers the native resolved theme, then the preference, then the system', () => {
    expect(resolveTheme('light', 'dark', true)).toBe('light');
    expect(resolveTheme('', 'dark', false)).toBe('dark');
    expect(resolveTheme('', 'auto', false)).toBe('light');
    expect(contrast('#000000', '#ffffff')).toBeCloseTo(21, 5);
  });
});
