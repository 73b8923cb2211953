// The mascot: a small round creature with two antlers, drawn in eight poses.
import type { Pose } from '../types';

const EYE = '#1b1206';

function Eyes({ pose }: { pose: Pose }) {
  switch (pose) {
    case 'sleep':
      return (
        <g stroke={EYE} stroke-width="1.8" fill="none" stroke-linecap="round">
          <path d="M12.5 24q2.5 2 5 0" />
          <path d="M22.5 24q2.5 2 5 0" />
        </g>
      );
    case 'success':
      return (
        <g stroke={EYE} stroke-width="1.9" fill="none" stroke-linecap="round">
          <path d="M12.5 24q2.5-3.2 5 0" />
          <path d="M22.5 24q2.5-3.2 5 0" />
        </g>
      );
    case 'error':
      return (
        <g stroke={EYE} stroke-width="1.8" stroke-linecap="round">
          <path d="M13 21.5l4 4M17 21.5l-4 4" />
          <path d="M23 21.5l4 4M27 21.5l-4 4" />
        </g>
      );
    case 'write':
      return (
        <g fill={EYE}>
          <ellipse cx="15.5" cy="25" rx="1.9" ry="1.6" />
          <ellipse cx="25.5" cy="25" rx="1.9" ry="1.6" />
        </g>
      );
    case 'think':
      return (
        <g fill={EYE}>
          <circle cx="16" cy="21.6" r="2.1" />
          <circle cx="26" cy="21.6" r="2.1" />
        </g>
      );
    case 'alert':
      return (
        <g>
          <circle cx="15" cy="22.5" r="3" fill="#fff" stroke={EYE} stroke-width="1.2" />
          <circle cx="25" cy="22.5" r="3" fill="#fff" stroke={EYE} stroke-width="1.2" />
          <circle cx="15" cy="22.5" r="1.5" fill={EYE} />
          <circle cx="25" cy="22.5" r="1.5" fill={EYE} />
        </g>
      );
    default:
      return (
        <g fill={EYE}>
          <circle cx="15" cy="22.5" r="2.2" />
          <circle cx="25" cy="22.5" r="2.2" />
          <circle cx="15.8" cy="21.7" r="0.7" fill="#fff" />
          <circle cx="25.8" cy="21.7" r="0.7" fill="#fff" />
        </g>
      );
  }
}

function Mouth({ pose }: { pose: Pose }) {
  const common = { stroke: EYE, 'stroke-width': 1.6, fill: 'none', 'stroke-linecap': 'round' as const };
  switch (pose) {
    case 'success': return <path d="M17 28.5q3 3 6 0" {...common} />;
    case 'error': return <path d="M16.5 30q1.75-1.6 3.5 0t3.5 0" {...common} />;
    case 'alert': return <ellipse cx="20" cy="29.6" rx="1.6" ry="1.9" fill={EYE} />;
    case 'sleep': return <path d="M18.5 29.5h3" {...common} />;
    case 'think': return <circle cx="21" cy="29.4" r="1.2" {...common} />;
    default: return <path d="M17.8 28.8q2.2 1.8 4.4 0" {...common} />;
  }
}

function Extra({ pose }: { pose: Pose }) {
  switch (pose) {
    case 'sleep':
      return (
        <g class="m-z" fill="currentColor" font-size="7" font-weight="700" font-family="system-ui, sans-serif">
          <text x="31" y="12">z</text>
          <text x="35" y="7" font-size="5">z</text>
        </g>
      );
    case 'success':
      return <path class="m-spark" d="M34 8l1 2.6 2.6 1-2.6 1-1 2.6-1-2.6-2.6-1 2.6-1z" fill="#fde68a" stroke="#b45309" stroke-width=".6" />;
    case 'error':
      return <path d="M33 14q-2 3 0 4.5q2-1.5 0-4.5z" fill="#7dd3fc" stroke="#0369a1" stroke-width=".6" />;
    case 'write':
      return (
        <g class="m-pencil"><g transform="rotate(35 31 30)">
          <rect x="29.4" y="22" width="3.2" height="11" rx=".8" fill="#60a5fa" stroke="#1e3a8a" stroke-width=".6" />
          <path d="M29.4 33h3.2L31 36.4z" fill="#fcd9a8" stroke="#1e3a8a" stroke-width=".6" />
        </g></g>
      );
    case 'think':
      return (
        <g class="m-dots" fill="currentColor">
          <circle cx="31" cy="13" r="1.3" />
          <circle cx="34.5" cy="10" r="1.6" />
          <circle cx="38" cy="6.5" r="1.9" />
        </g>
      );
    case 'alert':
      return (
        <g class="m-bang">
          <rect x="34" y="8" width="3" height="9" rx="1.5" fill="#f59e0b" stroke="#7c2d12" stroke-width=".6" />
          <circle cx="35.5" cy="20" r="1.6" fill="#f59e0b" stroke="#7c2d12" stroke-width=".6" />
        </g>
      );
    case 'listen':
      return (
        <g class="m-waves" fill="none" stroke="currentColor" stroke-width="1.5" stroke-linecap="round">
          <path d="M34 18q2 4 0 8" />
          <path d="M37 15.5q3.4 6.5 0 13" />
        </g>
      );
    default:
      return null;
  }
}

/**
 * `look` turns the eyes toward a point (each axis −1 … 1); `tight` crops the
 * margin around the body for small sizes.
 */
export function Mascot({ pose, size = 24, title, look, tight }: {
  pose: Pose; size?: number; title?: string; look?: { x: number; y: number }; tight?: boolean;
}) {
  const raised = pose === 'alert' || pose === 'success';
  const gaze = look && pose !== 'sleep' && pose !== 'success' && pose !== 'error'
    ? `translate(${(look.x * 1.2).toFixed(2)} ${(look.y * 0.9).toFixed(2)})` : undefined;
  return (
    <svg
      class={`mascot pose-${pose}`}
      width={size}
      height={size}
      viewBox={tight ? '4 3 33 33' : '0 0 40 40'}
      role={title ? 'img' : undefined}
      aria-hidden={title ? undefined : 'true'}
      aria-label={title}
    >
      <g class="m-body">
        <g stroke="#8a5a12" stroke-width="2.2" stroke-linecap="round" fill="none">
          <path d={raised ? 'M13.5 14L10.5 4.5M12 9.5L7 7.5' : 'M13.5 14.5L9.5 7M11.2 10.5L6.5 10'} />
          <path d={raised ? 'M26.5 14L29.5 4.5M28 9.5L33 7.5' : 'M26.5 14.5L30.5 7M28.8 10.5L33.5 10'} />
        </g>
        <path
          d="M20 12.5c8 0 13.5 5.3 13.5 12.6 0 6.7-5.6 10.9-13.5 10.9S6.5 31.8 6.5 25.1C6.5 17.8 12 12.5 20 12.5z"
          fill="#ffc247"
          stroke="#8a5a12"
          stroke-width="1.4"
        />
        <ellipse cx="11.6" cy="27.4" rx="2" ry="1.2" fill="#f9735b" opacity=".55" />
        <ellipse cx="28.4" cy="27.4" rx="2" ry="1.2" fill="#f9735b" opacity=".55" />
        <g transform={gaze}><Eyes pose={pose} /></g>
        <Mouth pose={pose} />
      </g>
      <Extra pose={pose} />
    </svg>
  );
}
