/** The page in a browser: one process, so that only one browser runs at a time. */
import './live_suite.mjs';
import './configuration_suite.mjs';
import './viewers_suite.mjs';
import './connection_suite.mjs';
import './recording_suite.mjs';
import './names_suite.mjs';
import './boards_suite.mjs';
