import QtQuick 2.12
import QtQuick.Controls 2.12
import QtQuick.Layouts 1.12
import Shotcut.Controls 1.0 as Shotcut

// The panel of the frei0r filter. The slider shows 0 to 60; the filter takes 0 to 1.
Shotcut.KeyframableFilter {
    readonly property string scale: '0'
    readonly property double defaultValue: 0

    function sliderValue() {
        return slider.value / slider.maximumValue;
    }

    function setControls() {
        blockUpdate = true;
        slider.value = Math.round(filter.getDouble(scale, getPosition()) * slider.maximumValue);
        keyframesButton.checked = filter.animateIn <= 0 && filter.animateOut <= 0 && filter.keyframeCount(scale) > 0;
        blockUpdate = false;
        slider.enabled = isSimpleKeyframesActive();
    }

    function updateSimpleKeyframes() {
        updateFilter(scale, sliderValue(), keyframesButton, null);
    }

    function savePreset(name, value) {
        filter.set(scale, value / slider.maximumValue);
        filter.savePreset(preset.parameters, name);
    }

    keyframableParameters: [scale]
    startValues: [defaultValue]
    middleValues: [defaultValue]
    endValues: [defaultValue]
    width: 350
    height: 100
    Component.onCompleted: {
        if (filter.isNew) {
            savePreset(qsTr('Light'), 10);
            savePreset(qsTr('Medium'), 20);
            savePreset(qsTr('Strong'), 60);
            filter.set(scale, defaultValue);
            filter.savePreset(preset.parameters);
        }
        setControls();
    }

    GridLayout {
        anchors.fill: parent
        anchors.margins: 8
        columns: 4

        Label {
            text: qsTr('Preset')
            Layout.alignment: Qt.AlignRight
        }

        Shotcut.Preset {
            id: preset

            parameters: [scale]
            Layout.columnSpan: 3
            onBeforePresetLoaded: resetSimpleKeyframes()
            onPresetSelected: {
                setControls();
                initializeSimpleKeyframes();
            }
        }

        Label {
            text: qsTr('Blur Scale')
            Layout.alignment: Qt.AlignRight
        }

        Shotcut.SliderSpinner {
            id: slider

            minimumValue: 0
            maximumValue: 60
            stepSize: 1
            onValueChanged: updateFilter(scale, sliderValue(), keyframesButton, getPosition())
        }

        Shotcut.UndoButton {
            onClicked: slider.value = defaultValue * slider.maximumValue
        }

        Shotcut.KeyframesButton {
            id: keyframesButton

            onToggled: {
                slider.enabled = true;
                toggleKeyframes(checked, scale, sliderValue());
            }
        }

        Item {
            Layout.fillHeight: true
        }
    }

    Connections {
        function onChanged() {
            setControls();
        }

        function onInChanged() {
            updateSimpleKeyframes();
        }

        function onOutChanged() {
            updateSimpleKeyframes();
        }

        function onAnimateInChanged() {
            updateSimpleKeyframes();
        }

        function onAnimateOutChanged() {
            updateSimpleKeyframes();
        }

        function onPropertyChanged(name) {
            setControls();
        }

        target: filter
    }

    Connections {
        function onPositionChanged() {
            setControls();
        }

        target: producer
    }
}
