import QtQuick 2.0
import org.shotcut.qml 1.0

// What Shotcut lists of the frei0r filter, and which of its parameters take keyframes.
Metadata {
    type: Metadata.Filter
    name: qsTr('Blur: Bilateral')
    keywords: qsTr('smooth soften skin edges denoise', 'search keywords for the Blur: Bilateral video filter') + ' blur: bilateral'
    objectName: 'bilateral_blur'
    mlt_service: 'frei0r.bilateral_blur'
    qml: 'ui.qml'

    keyframes {
        allowAnimateIn: true
        allowAnimateOut: true
        simpleProperties: ['0']
        parameters: [
            Parameter {
                name: qsTr('Blur Scale')
                property: '0'
                isCurve: true
                minimum: 0
                maximum: 1
            }
        ]
    }
}
